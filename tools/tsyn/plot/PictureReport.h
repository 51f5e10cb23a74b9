#pragma once

#include <string>

#include "tools/tsyn/plot/Report.h"

namespace tsyn {

/** What gnuplot is told; it writes a PNG to its standard output. */
std::string pictureScript(const Report& report);

/** Draws into a file that is open. Returns what went wrong in one line, empty on success. */
std::string drawPicture(const Report& report, int fd);

}  // namespace tsyn
