#pragma once

#include <optional>
#include <string>

#include "include/gPtpTimeReader.hpp"

namespace tsyn {

/** Read-only view of the time record that a daemon of any ABI publishes for an interface. */
class RecordView {
public:
    /** Maps the segment. False while it does not exist in its full size. */
    bool open(const std::string& interfaceName) {
        if (!isOpen()) {
            reader_.emplace(interfaceName.c_str());
        }
        return isOpen();
    }
    bool isOpen() const { return reader_ && reader_->opened() == GPTP_READ_OK; }

    /** A copy that belongs together; nothing when the record kept changing or is not open. */
    std::optional<gPtpTimeDataStruct> snapshot() {
        gPtpTimeDataStruct record;
        result_ = isOpen() ? reader_->record(record) : GPTP_READ_NO_SEGMENT;
        if (result_ != GPTP_READ_OK && result_ != GPTP_READ_NO_QUALITY) {
            return {};
        }
        return record;
    }

    /** Why the latest snapshot is one, or is none. */
    gPtpReadResult result() const { return result_; }

private:
    std::optional<gptp::TimeReader> reader_;
    gPtpReadResult result_ = GPTP_READ_NO_SEGMENT;
};

}  // namespace tsyn
