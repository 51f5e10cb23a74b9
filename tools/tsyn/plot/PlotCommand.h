#pragma once

#include "tools/tsyn/plot/PlotOptions.h"

namespace tsyn {

/** Draws. Returns the exit status: 0; 1 with one line on standard error, and nothing written. What
 *  of a damaged file was left out is told on standard error, too, and the rest is drawn. */
int plotCommand(const PlotOptions& options);

}  // namespace tsyn
