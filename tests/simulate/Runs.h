#pragma once

#include <filesystem>
#include <string>

/** What tests need that run the program as a user does. */

namespace fs = std::filesystem;

std::string contents(const fs::path& path);

/** A folder that is gone with its scope. */
class Folder {
public:
    Folder();
    ~Folder() { fs::remove_all(path_); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    fs::path operator/(const std::string& name) const { return path_ / name; }
    fs::path write(const std::string& name, const std::string& text) const;

private:
    fs::path path_;
};

struct Ran {
    int status = -1;
    std::string out;
    std::string errors;
};

/** The arguments are for a shell, with redirections of their own if need be. */
Ran simulateWith(const Folder& folder, const std::string& arguments);
