#include <exception>
#include <string>

#include "api/BuildStamp.h"
#include "tools/tsyn/Abi.h"
#include "tools/tsyn/Failure.h"
#include "tools/tsyn/program/Program.h"

namespace {

/** Version, ABI and the moment that the library's log tells of this build. */
std::string versionText() {
    return std::string("tsyn " TSYN_VERSION " (") + tsyn::abiName() + "), built " + kBuildDate +
           " " + kBuildTime + " UTC";
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return tsyn::parseAndRun(argc, argv, versionText(), kBuildDate);
    } catch (const std::exception& error) {
        return tsyn::fail(error.what());
    }
}
