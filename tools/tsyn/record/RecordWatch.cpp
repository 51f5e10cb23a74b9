#include "tools/tsyn/record/RecordWatch.h"

#include <cerrno>
#include <cstring>

#include "include/gPtpTimeQuality.h"
#include "tools/tsyn/daemon/QualityReport.h"

namespace tsyn {
namespace {

/** A segment that was made anew is noticed within so long. */
constexpr double kCheckPeriodS = 1.0;

std::string fileOf(const std::string& interfaceName) {
    return "/dev/shm/" + interfaceName;
}

bool isOtherOwner(const gPtpTimeDataStruct& one, const gPtpTimeDataStruct& other) {
    const auto before = qualityOf(one);
    const auto after = qualityOf(other);
    return before && after && before->ownerPid != after->ownerPid && before->ownerPid != 0 &&
           after->ownerPid != 0;
}

}  // namespace

bool RecordWatch::openCurrent(double nowS) {
    if (view_ && view_->isOpen() && nowS - checkedS_ < kCheckPeriodS) {
        return true;
    }
    checkedS_ = nowS;
    struct stat status {};
    if (stat(fileOf(interfaceName_).c_str(), &status) != 0) {
        problem_ = fileOf(interfaceName_) + ": " + std::strerror(errno);
        view_.reset();
        return false;
    }
    if (view_ && status.st_ino == file_.st_ino && status.st_ctim.tv_sec == file_.st_ctim.tv_sec &&
        status.st_ctim.tv_nsec == file_.st_ctim.tv_nsec) {
        return true;
    }
    const bool isOther = view_ && status.st_ino != file_.st_ino;
    file_ = status;
    view_.emplace();
    if (!view_->open(interfaceName_)) {
        problem_ = fileOf(interfaceName_) + ": no time record that may be read";
        view_.reset();
        return false;
    }
    isNewSegment_ = isNewSegment_ || isOther;
    return true;
}

std::optional<gPtpTimeDataStruct> RecordWatch::look(double nowS) {
    if (!openCurrent(nowS)) {
        isNewSegment_ = last_.has_value();
        return {};
    }
    const auto record = view_->snapshot();
    if (!record) {
        problem_ = fileOf(interfaceName_) + ": never at rest";
        return {};
    }
    compare(*record);
    return record;
}

void RecordWatch::compare(const gPtpTimeDataStruct& record) {
    hasRestarted_ = last_ && (isNewSegment_ || record.acceptedSync < last_->acceptedSync ||
                              isOtherOwner(*last_, record));
    hasChanged_ = last_ && (record.acceptedSync != last_->acceptedSync ||
                            record.sequenceId != last_->sequenceId);
    isNewSegment_ = false;
    last_ = record;
}

}  // namespace tsyn
