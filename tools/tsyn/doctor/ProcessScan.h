#pragma once

#include "tools/tsyn/doctor/Evidence.h"

namespace tsyn::doctor {

/** The processes of the machine that have to do with the interface, its clock or its record. */
std::vector<Process> scanProcesses(const std::string& interfaceName, int clockIndex);

/** Whether a program of that name sets clocks. */
bool isClockProgram(const std::string& name);

/** Whether one of the words of a command is the name, or ends or begins with it behind a sign. */
bool namesWord(const std::string& command, const std::string& name);

}  // namespace tsyn::doctor
