#pragma once

#include "tools/tsyn/Command.h"

namespace tsyn {

Command addConvertCommand(CLI::App& program);

}  // namespace tsyn
