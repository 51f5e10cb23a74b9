#pragma once

#include <optional>
#include <string>

#include "include/gPtpTimeData.h"

namespace tsyn {

/** Read-only view of the time record that a daemon of any ABI publishes for an interface. */
class RecordView {
public:
    RecordView() = default;
    ~RecordView();
    RecordView(const RecordView&) = delete;
    RecordView& operator=(const RecordView&) = delete;

    /** Maps the segment. False while it does not exist in its full size. */
    bool open(const std::string& interfaceName);
    bool isOpen() const { return segment_ != nullptr; }

    /** A copy that read the same twice; nothing when the record kept changing or is not open. */
    std::optional<gPtpTimeDataStruct> snapshot() const;

private:
    const unsigned char* segment_ = nullptr;
};

}  // namespace tsyn
