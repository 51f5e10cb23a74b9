#include "tests/virtual_i210/Programs.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

Program startProgram(const std::string& command) {
    Program program(popen(command.c_str(), "r"));
    if (!program) {
        throw std::runtime_error("cannot start " + command);
    }
    return program;
}

std::string readLine(const Program& program) {
    char line[1024];
    return std::fgets(line, sizeof line, program.get()) == nullptr ? "" : line;
}

std::string outputOf(const std::string& command) {
    const Program program = startProgram(command + " 2>&1");
    std::string output;
    for (std::string line = readLine(program); !line.empty(); line = readLine(program)) {
        output += line;
    }
    return output;
}

Background::Background(const std::string& command) : pid_(fork()) {
    if (pid_ == 0) {
        execl("/bin/sh", "sh", "-c", ("exec " + command).c_str(), nullptr);
        _exit(127);
    }
}

Background::~Background() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
}
