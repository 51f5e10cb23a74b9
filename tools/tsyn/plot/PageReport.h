#pragma once

#include <string>

#include "tools/tsyn/plot/Report.h"

namespace tsyn {

/** The report as one HTML page that needs nothing else. */
std::string reportPage(const Report& report);

}  // namespace tsyn
