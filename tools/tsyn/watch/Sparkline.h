#pragma once

#include <string>

#include "tools/tsyn/watch/History.h"

namespace tsyn {

/** The latest values as a row of bars between the least and the most of them, one column each;
 *  blank where there is none, and filled with blanks from the left. utf8: eighths of blocks;
 *  otherwise characters of rising height. */
std::string sparkline(const RecentValues& series, std::size_t columns, bool utf8);

/** Columns that a text takes on the screen: its UTF-8 characters. */
std::size_t columnsOf(const std::string& text);

/** Cut to that many columns. */
std::string cutTo(const std::string& text, std::size_t columns);

}  // namespace tsyn
