#include <algorithm>
#include <cstdio>

#include "base/DbgLog.h"
#include "ptp/ptpclass.h"
#include "wire/ptpwire.h"

namespace {

constexpr unsigned char kTimeSecuredType = 0x28;

// Where an AUTOSAR TLV has its first sub-TLV when it stands alone, in place of the 802.1AS one.
constexpr int kFirstSubTlv = wire::kFollowUpOrganizationSubType + 3;

constexpr const char* kTypeNames[16] = {"PTP_MSG_SYNC",
                                        "PTP_MSG_DELAY_REQ",
                                        "PTP_MSG_PDELAY_REQ",
                                        "PTP_MSG_PDELAY_RESP",
                                        "PTP_MSG_UNASSIGNED",
                                        "PTP_MSG_UNASSIGNED",
                                        "PTP_MSG_UNASSIGNED",
                                        "PTP_MSG_UNASSIGNED",
                                        "PTP_MSG_FOLLOWUP",
                                        "PTP_MSG_DELAY_RESP",
                                        "PTP_MSG_PDELAY_RESP_FOLLOWUP",
                                        "PTP_MSG_ANNOUNCE",
                                        "PTP_MSG_SIGNALING",
                                        "PTP_MSG_MANAGEMENT",
                                        "PTP_MSG_UNASSIGNED",
                                        "PTP_MSG_UNASSIGNED"};

/** Types of messages that are named but never handled. */
enum UnhandledType : unsigned char { kDelayReq = 1, kDelayResp = 9 };

/** A message under a dump. Every print says which bytes it shows and is skipped, with all that
 *  follow, once those lie beyond the message. */
class Dump {
public:
    explicit Dump(const unsigned char* message)
        : message_(message),
          length_(std::min<int>(static_cast<int>(wire::messageLength(message)),
                                wire::kMessageBufferSize)) {}

    template <typename... Values>
    void line(int end, const char* format, Values... values) {
        ended_ = ended_ || end > length_;
        if (!ended_) {
            std::printf(format, values...);
        }
    }

    unsigned int byte(int offset) const { return message_[offset]; }

    /** A one-byte field as a decimal or hexadecimal number. */
    void byteLine(int offset, const char* format) { line(offset + 1, format, byte(offset)); }

    template <int Bytes>
    void numberLine(int offset, const char* format) {
        line(offset + Bytes, format,
             static_cast<unsigned int>(wire::loadBigEndian<Bytes>(message_ + offset)));
    }

    void timestamp(const char* name) {
        const ptp_time_t time = wire::loadTimestamp(message_ + wire::kTimestamp);
        line(wire::kTimestamp + 6, "    %s(seconds): %llu\n", name, time.seconds);
        line(wire::kTimestamp + 10, "    %s(nanoseconds): %u\n", name, time.nanoseconds);
    }

    void requestingPort() {
        const unsigned char* const id = message_ + wire::kRequestingClockIdentity;
        line(wire::kRequestingPortNumber,
             "    requestingSourcePortIdentity: "
             "%02hhx-%02hhx-%02hhx-%02hhx-%02hhx-%02hhx-%02hhx-%02hhx\n",
             id[0], id[1], id[2], id[3], id[4], id[5], id[6], id[7]);
        numberLine<2>(wire::kRequestingPortNumber, "    requestingSourcePortId: %d\n");
    }

    void header();
    void followUpTlv();
    void announce();

private:
    void autosarTime();
    void ieeeValues();

    const unsigned char* message_;
    int length_;
    bool ended_ = false;
};

void Dump::header() {
    const unsigned int type = wire::messageType(message_);
    line(1, "*** %s\n", kTypeNames[type]);
    line(1, "    messageType[%xH]: %d\n", type, static_cast<int>(type));
    line(2, "    versionPTP: %d\n", static_cast<int>(byte(wire::kVersion) & wire::kVersionMask));
    numberLine<2>(wire::kMessageLength, "    messageLength: %d\n");
    byteLine(wire::kDomainNumber, "    subdomainNumber: %d\n");
    line(wire::kFlags + 2, "    flags: 0x%02hhx%02hhx\n", message_[wire::kFlags],
         message_[wire::kFlags + 1]);
    constexpr long double kUnitsPerNs = 65536;
    const auto correction = static_cast<long long>(wire::load64(message_ + wire::kCorrectionField));
    line(wire::kCorrectionField + 8, "    correction: %.1Lf nsec\n",
         static_cast<long double>(correction) / kUnitsPerNs);
    // The fourth and fifth byte stand together, as log readers parse it.
    const unsigned char* const id = message_ + wire::kSourceClockIdentity;
    line(wire::kSourcePortNumber,
         "    ClockIdentity: %02hhx-%02hhx-%02hhx-%02hhx%02hhx-%02hhx-%02hhx-%02hhx\n", id[0],
         id[1], id[2], id[3], id[4], id[5], id[6], id[7]);
    numberLine<2>(wire::kSourcePortNumber, "    SourcePortId: %d\n");
    numberLine<2>(wire::kSequenceId, "    sequenceId: %d\n");
    byteLine(wire::kControl, "    control: %d\n");
    line(wire::kLogMessageInterval + 1, "    logMessagePeroid: %d\n",
         static_cast<int>(static_cast<signed char>(message_[wire::kLogMessageInterval])));
}

void Dump::autosarTime() {
    line(kFirstSubTlv + 1, "          Type: 0x%x # AUTOSAR TLV Sub-TLV: Time Secured\n",
         kTimeSecuredType);
    byteLine(kFirstSubTlv + 2, "          CRC_Time_Flags = 0x%x\n");
    byteLine(kFirstSubTlv + 3, "          CRC_Time_0     = 0x%x\n");
    byteLine(kFirstSubTlv + 4, "          CRC_Time_1     = 0x%x\n");
}

void Dump::ieeeValues() {
    numberLine<3>(wire::kFollowUpOrganizationSubType, "       organizationSubType: 0x%x\n");
    numberLine<4>(wire::kCumulativeScaledRateOffset, "       cumulativeScaledRateOffset: %u\n");
    numberLine<2>(wire::kGmTimeBaseIndicator, "       gmTimeBaseIndicator: %u\n");
    const unsigned char* const phase = message_ + wire::kLastGmPhaseChange;
    line(wire::kLastGmPhaseChange + 12,
         "       lastGmPhaseChange: %.2x%.2x%.2x%.2x%.2x%.2x%.2x%.2x%.2x%.2x%.2x%.2x\n", phase[0],
         phase[1], phase[2], phase[3], phase[4], phase[5], phase[6], phase[7], phase[8], phase[9],
         phase[10], phase[11]);
    numberLine<4>(wire::kScaledLastGmFreqChange, "       scaledLastGmFreqChange:%u\n");
}

void Dump::followUpTlv() {
    line(wire::kFollowUpTlv, "    >FollowUp information TLV\n");
    numberLine<2>(wire::kFollowUpTlv, "       tlvtype: %u\n");
    numberLine<2>(wire::kFollowUpTlv + 2, "       lengthField: %u\n");
    const auto organization =
        static_cast<unsigned int>(wire::loadBigEndian<3>(message_ + wire::kFollowUpOrganizationId));
    line(wire::kFollowUpOrganizationId + 3, "       organizationId: 0x%x (%d)\n", organization,
         static_cast<int>(organization));
    const auto subType = static_cast<unsigned int>(
        wire::loadBigEndian<3>(message_ + wire::kFollowUpOrganizationSubType));
    line(wire::kFollowUpOrganizationSubType + 3, "       organizationSubType: 0x%x (%d) \n",
         subType, static_cast<int>(subType));
    const unsigned int firstSubTlv = byte(kFirstSubTlv);
    if (organization == wire::kOrganizationAutosar && firstSubTlv == kTimeSecuredType) {
        autosarTime();
    } else {
        ieeeValues();
    }
}

void Dump::announce() {
    numberLine<2>(wire::kFollowUpTlv, "    originCurrentUTCOffset: %d\n");
    for (const char* label :
         {"    priority1:\n", "    grandmasterClockClass: \n", "    grandmasterClockAccuracy: \n",
          "    grandmasterClockVariance: \n", "    priority2: \n",
          "    grandmasterClockIdentity: \n", "    localStepsRemoved: \n", "    TimeSource: \n",
          "    Path trace TLV \n", "      tlvType: Path trace \n", "      lengthField: \n",
          "      PathSequence: \n"}) {
        line(0, "%s", label);
    }
}

}  // namespace

unsigned int PTPMessage::msgDebugHeader() {
    Dump dump(buffer_);
    dump.header();
    switch (wire::messageType(buffer_)) {
    case wire::kSync:
    case kDelayReq:
        dump.timestamp("originTimestamp");
        break;
    case wire::kPdelayResp:
    case kDelayResp:
        dump.timestamp("requestreceiptTimestamp");
        dump.requestingPort();
        break;
    case wire::kPdelayRespFollowUp:
        dump.timestamp("responseOriginTimestamp");
        dump.requestingPort();
        break;
    case wire::kFollowUp:
        dump.timestamp("preciseOriginTimestamp");
        dump.followUpTlv();
        break;
    case wire::kAnnounce:
        dump.announce();
        break;
    default:
        break;
    }
    return 0;
}
