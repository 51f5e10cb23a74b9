#pragma once

#include <sys/types.h>

#include <cstdio>
#include <memory>
#include <string>

struct CloseProgram {
    void operator()(FILE* program) const { pclose(program); }
};
using Program = std::unique_ptr<FILE, CloseProgram>;

Program startProgram(const std::string& command);
/** The next line with its end, or nothing at the end of the output. */
std::string readLine(const Program& program);
/** Everything a command says, also about errors. */
std::string outputOf(const std::string& command);

/** A program in the background that ends with the test. */
class Background {
public:
    explicit Background(const std::string& command);
    ~Background();
    Background(const Background&) = delete;
    Background& operator=(const Background&) = delete;

private:
    pid_t pid_;
};
