#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

#include "tools/tsyn/daemon/RecordView.h"

namespace tsyn {

/** The record of a daemon that may end, start again and make its segment anew meanwhile. */
class RecordWatch {
public:
    explicit RecordWatch(std::string interfaceName) : interfaceName_(std::move(interfaceName)) {}

    /** Nothing while there is none to be had; problem() then tells why. nowS: of a clock that is
     *  never set. */
    std::optional<gPtpTimeDataStruct> look(double nowS);

    const std::string& problem() const { return problem_; }

    /** Whether a daemon began anew between the two latest records. */
    bool hasRestarted() const { return hasRestarted_; }
    /** Whether a Sync showed between them. */
    bool hasChanged() const { return hasChanged_; }

private:
    bool openCurrent(double nowS);
    void compare(const gPtpTimeDataStruct& record);

    std::string interfaceName_;
    std::optional<RecordView> view_;
    struct stat file_ {};
    double checkedS_ = 0.0;
    bool isNewSegment_ = false;
    std::optional<gPtpTimeDataStruct> last_;
    bool hasRestarted_ = false;
    bool hasChanged_ = false;
    std::string problem_;
};

}  // namespace tsyn
