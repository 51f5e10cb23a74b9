#pragma once

#include "tools/tsyn/Command.h"

namespace tsyn {

Command addSetCommand(CLI::App& program);

}  // namespace tsyn
