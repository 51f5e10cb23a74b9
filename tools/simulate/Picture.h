#pragma once

#include <string>

#include "tools/simulate/Report.h"

namespace simulate {

/** What gnuplot draws: the nodes' errors over time with the events marked, and their histogram.
 *  Empty where nothing was sampled. Long runs are thinned to their extremes. */
std::string pictureScript(const RunRecord& record, const std::string& pngFile);

/** Lets gnuplot draw. Returns what went wrong, empty on success. */
std::string draw(const std::string& script);

}  // namespace simulate
