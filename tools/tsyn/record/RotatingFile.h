#pragma once

#include <cstdint>
#include <string>

#include "tools/common/OwnDescriptor.h"

namespace tsyn {

/** Lines in a file of bounded size. What would make it too long begins a new one: FILE becomes
 *  FILE.1, FILE.1 becomes FILE.2, and the oldest goes. Each line is handed to the kernel at once.
 *  Functions return what went wrong in one line, empty on success. */
class RotatingFile {
public:
    struct Limits {
        std::uint64_t fileBytes = 0;  ///< of one file
        unsigned int kept = 0;        ///< older files beside it
    };

    RotatingFile(std::string path, Limits limits) : path_(std::move(path)), limits_(limits) {}

    /** "-" is standard output. Refuses to replace files unless told to, and then removes the older
     *  ones of that name as well. head: lines that every file begins with. */
    std::string open(const std::string& head, bool replace);

    std::string writeLine(const std::string& line);

    /** Tells what the file system only finds in the end. */
    std::string close();

    /** Of all files, also of those that are gone. */
    std::uint64_t writtenBytes() const { return writtenBytes_; }
    unsigned int rotations() const { return rotations_; }

private:
    std::string pathOf(unsigned int number) const;
    std::string existing() const;
    std::string begin(int flags);
    std::string rotate();
    std::string write(const std::string& text);
    std::string problem(const std::string& what) const;

    std::string path_;
    Limits limits_;
    std::string head_;
    tools::OwnDescriptor fd_;
    bool isRegular_ = false;
    std::uint64_t fileBytes_ = 0;
    std::uint64_t writtenBytes_ = 0;
    unsigned int rotations_ = 0;
};

}  // namespace tsyn
