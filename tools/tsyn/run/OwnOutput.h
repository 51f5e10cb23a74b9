#pragma once

#include <string>

namespace tsyn {

/** Keeps the standard output that tsyn was started with for its own lines and sends the library's
 *  log, which the library prints to standard output, elsewhere. */
class OwnOutput {
public:
    OwnOutput() = default;
    ~OwnOutput();
    OwnOutput(const OwnOutput&) = delete;
    OwnOutput& operator=(const OwnOutput&) = delete;

    /** Redirects descriptor 1 to a file (appending), or to standard error for "-". Returns what
     *  went wrong, empty on success. To be called before the library's first call. */
    std::string separate(const std::string& logTarget);

    /** Writes one line. False once the reader has gone. */
    bool line(const std::string& text);

private:
    int fd_ = -1;
};

}  // namespace tsyn
