#pragma once

#include <string>
#include <vector>

#include "tools/tsyn/Command.h"

namespace tsyn {

/** What `tsyn plot` was asked to do. */
struct PlotOptions {
    std::vector<std::string> files;
    std::string output;
    bool replaces = false;
    double shiftS = 0.0;
    unsigned int points = 3000;

    bool isPicture() const;
};

Command addPlotCommand(CLI::App& program);

}  // namespace tsyn
