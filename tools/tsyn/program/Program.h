#pragma once

#include <string>

namespace tsyn {

/** Reads the command line, runs the command that it names and gives its status. version: what
 *  --version prints; buildDate: for the guides. */
int parseAndRun(int argc, char** argv, const std::string& version, const char* buildDate);

}  // namespace tsyn
