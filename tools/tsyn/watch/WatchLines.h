#pragma once

#include <string>

#include "tools/tsyn/watch/Watcher.h"

namespace tsyn {

/** What the latest look came to, for people. */
std::string watchLine(const Watcher& watcher);

/** The same as one JSON object: that of `tsyn status` with event "watch" and what the time of
 *  watching adds, or one of event "waiting". */
std::string watchJson(const Watcher& watcher, int utcOffsetS);

}  // namespace tsyn
