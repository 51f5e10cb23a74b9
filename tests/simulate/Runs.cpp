#include "tests/simulate/Runs.h"

#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

std::string contents(const fs::path& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

Folder::Folder() {
    std::string name = "/tmp/simulate_runs_XXXXXX";
    path_ = mkdtemp(name.data());
}

fs::path Folder::write(const std::string& name, const std::string& text) const {
    std::ofstream(path_ / name) << text;
    return path_ / name;
}

Ran simulateWith(const Folder& folder, const std::string& arguments) {
    const std::string command = std::string(ZEB_SIMULATE) + " >" + (folder / "stdout").string() +
                                " 2>" + (folder / "stderr").string() + " " + arguments;
    const int status = std::system(command.c_str());
    return {WEXITSTATUS(status), contents(folder / "stdout"), contents(folder / "stderr")};
}
