#pragma once

#include <string>

#include "tools/common/OwnDescriptor.h"

namespace tsyn {

/** Keeps the standard output that tsyn was started with for its own lines and sends the library's
 *  log, which the library prints to standard output, elsewhere. */
class OwnOutput {
public:
    /** Redirects descriptor 1 to a file (appending), or to standard error for "-". Returns what
     *  went wrong, empty on success. To be called before the library's first call. */
    std::string separate(const std::string& logTarget);

    /** Writes one line. False once the reader has gone. A reader that is there and takes nothing
     *  costs the line, after a second or when a signal asks for the end. */
    bool line(const std::string& text);

private:
    bool hasRoom() const;

    tools::OwnDescriptor fd_;
    tools::OwnDescriptor endSignals_; /**< closed where the output takes everything */
};

}  // namespace tsyn
