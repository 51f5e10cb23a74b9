#include "profile/SegmentSwitches.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include "base/DbgLog.h"
#include "timebase/osipc.h"

namespace {

constexpr const char* kLogSource = log_source::kSegment;
constexpr const char* kFolder = "/dev/shm";

std::atomic<bool> isTold{false};

/** One line a start, whoever asks first: each message would ask again. */
void tellOnce(const std::string& segment, const char* problem) {
    if (isTold.exchange(true)) {
        return;
    }
    const std::string path = kFolder + segment;
    struct stat status {};
    if (segment.empty()) {
        ZEB_LOG_REFUSAL("No time can be published before Start: %s\n", problem);
    } else if (lstat(path.c_str(), &status) == 0) {
        ZEB_LOG_REFUSAL(
            "No time can be published in %s, which belongs to uid %u: %s; remove it or "
            "start as its owner\n",
            path.c_str(), static_cast<unsigned int>(status.st_uid), problem);
    } else {
        ZEB_LOG_REFUSAL("No time can be published in %s: %s; make %s writable\n", path.c_str(),
                        problem, kFolder);
    }
}

void tellFailure(const char* call, const std::string& segment) {
    char problem[128];
    std::snprintf(problem, sizeof problem, "%s: %s", call, strerror(errno));
    tellOnce(segment, problem);
}

/** A segment that another user may change or remove is none to rely on, even where it opens. */
bool isAnothers(const std::string& segment) {
    struct stat status {};
    return lstat((kFolder + segment).c_str(), &status) == 0 && status.st_uid != geteuid();
}

/** Maps the segment for good, so that no message has to. */
bool mapAtStart(const char* interfaceName) {
    isTold = false;
    try {
        const std::string segment = std::string("/") + interfaceName;
        if (isAnothers(segment)) {
            tellOnce(segment, "it is another user's");
            return false;
        }
        nameSegment(segment);
        return OSipc::instance(interfaceName) != nullptr;
    } catch (const std::exception& problem) {
        ZEB_LOG_REFUSAL("Start refused: %s\n", problem.what());
        return false;
    }
}

constexpr SegmentSteps kDeployed{startAnyway, tellStandardError};
constexpr SegmentSteps kRequired{mapAtStart, tellFailure};

}  // namespace

void segment_switches::install(const TSynProfile& profile) {
    segmentMode = profile.segmentMode;
    segmentSteps = profile.segmentRequired != 0 ? kRequired : kDeployed;
}
