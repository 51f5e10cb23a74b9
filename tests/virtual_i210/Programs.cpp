#include "tests/virtual_i210/Programs.h"

#include <cstdio>
#include <memory>
#include <stdexcept>

std::string outputOf(const std::string& command) {
    const std::unique_ptr<FILE, int (*)(FILE*)> program(popen((command + " 2>&1").c_str(), "r"),
                                                        pclose);
    if (!program) {
        throw std::runtime_error("cannot start " + command);
    }
    std::string output;
    char part[1024];
    while (std::fgets(part, sizeof part, program.get()) != nullptr) {
        output += part;
    }
    return output;
}
