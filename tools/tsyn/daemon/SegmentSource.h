#pragma once

#include <sys/stat.h>

#include <vector>

#include "tools/tsyn/daemon/RecordSource.h"
#include "tools/tsyn/daemon/RecordView.h"

namespace tsyn {

/** The segment that a daemon of this host publishes, mapped for reading only. A segment that was
 *  made anew is found by the next look. */
class SegmentSource : public RecordSource {
public:
    explicit SegmentSource(std::string interfaceName) : interfaceName_(std::move(interfaceName)) {}

    std::optional<Look> look(double withinS) override;
    std::string name() const override { return interfaceName_; }
    bool sharesClock() const override { return true; }
    std::string segmentFile() const override;

private:
    bool openCurrent();

    std::string interfaceName_;
    std::optional<RecordView> view_;
    struct stat file_ {};
    unsigned int segments_ = 0;
};

/** The interfaces that have a segment of a record's size, sorted. */
std::vector<std::string> segmentNames();

}  // namespace tsyn
