#pragma once

#include <string>
#include <vector>

#include "tools/tsyn/watch/Watcher.h"

namespace tsyn {

/** How a page is to look. */
struct PageShape {
    std::size_t rows = 24;
    std::size_t columns = 80;
    bool utf8 = true;
    bool isPaused = false;
    int utcOffsetS = 37;
};

/** The lines of a page, each within its columns: what matters most comes first, the help last. A
 *  terminal that is too small shows the beginning. */
std::vector<std::string> pageLines(const Watcher& watcher, const PageShape& shape);

/** "accepted 12 (8.0/s)  ..." broken into lines of that many columns. */
std::vector<std::string> counterLines(const std::vector<std::string>& cells, std::size_t columns);

}  // namespace tsyn
