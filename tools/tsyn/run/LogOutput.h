#pragma once

#include <string>

#include "include/ZebEthTimeSynProfile.h"

namespace tsyn {

/** The way of the library's log to standard output, watched: the library itself drops what cannot
 *  be written. One log a process. */
namespace log_output {

/** Has the lines of a profile that sifts them written here; deployed nodes print each by itself. */
void watch(TSynProfile& profile);

/** Why a line could not be written so far, 0 when none was lost. A full pipe is no failure. */
int failure();

/** Opens the file anew after it was moved away. Returns what went wrong, empty on success; the log
 *  then goes on where it went before. "-" needs nothing. */
std::string reopen(const std::string& logTarget);

}  // namespace log_output
}  // namespace tsyn
