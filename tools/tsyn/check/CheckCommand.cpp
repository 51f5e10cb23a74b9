#include "tools/tsyn/check/CheckCommand.h"

#include <cstdio>

#include "tools/tsyn/Failure.h"
#include "tools/tsyn/StandardOutput.h"
#include "tools/tsyn/check/CaptureFile.h"
#include "tools/tsyn/check/CheckReport.h"

namespace tsyn {
namespace {

constexpr int kAllRight = 0;
constexpr int kFindings = 1;
constexpr int kUnreadable = 2;

}  // namespace

int checkCommand(const CheckOptions& options) {
    CaptureFile capture;
    const std::string problem = capture.open(options.file);
    if (!problem.empty()) {
        return fail(problem, kUnreadable);
    }
    FollowUpChecker checker(options.dataIds());
    CaptureFrame frame;
    while (capture.next(frame)) {
        checker.add(frame);
    }
    checker.finish(options.leastFrames);
    const CheckResult& result = checker.result();
    if (options.json) {
        std::printf("%s\n", checkJson(options.file, result).c_str());
    } else {
        for (const std::string& line : findingLines(result)) {
            std::printf("%s\n", line.c_str());
        }
        std::printf("%s\n", checkSummary(options.file, result).c_str());
    }
    // What stood before the damage has been checked all the same.
    if (!capture.error().empty()) {
        return outputStatus(fail(capture.error(), kUnreadable), kUnreadable);
    }
    return outputStatus(result.findings.empty() ? kAllRight : kFindings, kUnreadable);
}

}  // namespace tsyn
