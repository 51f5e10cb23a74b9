#pragma once

#include <string>

#include "tools/tsyn/Command.h"

namespace tsyn {

/** What `tsyn export` was asked to do. */
struct ExportOptions {
    std::string interfaceName;
    std::string listen;
    double staleAfterS = 1.5;
    int utcOffsetS = 37;
};

Command addExportCommand(CLI::App& program);

/** Answers scrapes until it is ended. Returns 0, or 1 when it cannot listen. */
int exportCommand(const ExportOptions& options);

}  // namespace tsyn
