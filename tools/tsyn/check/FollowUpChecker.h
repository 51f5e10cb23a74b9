#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/tsyn/check/CaptureFrame.h"
#include "tools/tsyn/check/FollowUpTlvs.h"
#include "tools/tsyn/check/PtpPayload.h"

namespace tsyn {

/** One thing that is wrong, and where. */
struct Finding {
    unsigned long frame = 0; /**< 0: the whole capture */
    std::uint64_t timeNs = 0;
    std::string source; /**< sourcePortIdentity as clockIdentity-portNumber, empty without one */
    std::optional<unsigned int> sequenceId;
    Defect defect;
};

inline constexpr std::size_t kMessageTypeCount = 16;

struct CheckResult {
    unsigned long frames = 0;
    unsigned long vlanTagged = 0;
    unsigned long notPtp = 0;
    std::array<unsigned long, kMessageTypeCount> byType{};
    unsigned long autosarFollowUps = 0;
    std::array<unsigned long, kCrcFieldCount> right{};
    std::array<unsigned long, kCrcFieldCount> wrong{};
    std::vector<Finding> findings;
};

/** Name of a message type, "type 4" and the like for reserved ones. */
std::string messageTypeName(unsigned int messageType);

/** Checks the PTP frames of a capture in the order of the wire: the TLVs and CRCs of every
 *  Follow_Up, lengths, and the sequence of ids for each source port and message type. */
class FollowUpChecker {
public:
    explicit FollowUpChecker(const DataIdList& dataIds) : dataIds_(dataIds) {}

    void add(const CaptureFrame& frame);

    /** After the last frame. leastFrames: PTP frames that the capture has to hold. */
    void finish(unsigned long leastFrames);

    const CheckResult& result() const { return result_; }

private:
    void takeMessage(const CaptureFrame& frame, const PtpPayload& payload);
    void takeFollowUp(const CaptureFrame& frame, const unsigned char* message);
    void followSequence(const CaptureFrame& frame, const PtpPayload& payload);
    void report(const CaptureFrame& frame, const unsigned char* message, Defect defect);

    DataIdList dataIds_;
    CheckResult result_;
    std::map<std::string, unsigned int> lastSequenceIds_;
};

}  // namespace tsyn
