#include "wire/FrameTrace.h"

#include <algorithm>
#include <cstdio>

#include "base/DbgLog.h"
#include "wire/EthernetFrame.h"
#include "wire/ptpwire.h"

namespace {

constexpr int kFrameTraceBit = 0x80;
constexpr int kFrameTraceAbove = 3;
constexpr unsigned int kGeneralMessageBit = 0x08;

/** The columns of a traced frame behind its type. */
struct FrameRow {
    const unsigned char* header;
    const ptp_time_t& time;

    void write(char* row, std::size_t size) const;
};

const char* rowTitle(unsigned int type) {
    switch (type) {
    case wire::kSync:
        return "Sync               ";
    case wire::kPdelayReq:
        return "PDelay Req         ";
    case wire::kPdelayResp:
        return "PDelay Resp        ";
    case wire::kFollowUp:
        return "Follow up          ";
    case wire::kPdelayRespFollowUp:
        return "PDelay Resp Follow ";
    case wire::kAnnounce:
        return "Anounce            ";
    default:
        return nullptr;
    }
}

void FrameRow::write(char* row, std::size_t size) const {
    const unsigned int type = wire::messageType(header);
    const char* const title = rowTitle(type);
    if (title == nullptr) {
        std::snprintf(row, size, "?%.2x?", type);
        return;
    }
    const unsigned char* const id = header + wire::kSourceClockIdentity;
    const int written =
        std::snprintf(row, size, "%s| %.02X%.02X%.02X%.02X%.02X%.02X%.02X%.02X | %.3u | %.6u |",
                      title, id[0], id[1], id[2], id[3], id[4], id[5], id[6], id[7],
                      wire::load16(header + wire::kSourcePortNumber), wire::sequenceId(header));
    if (type != wire::kAnnounce) {
        std::snprintf(row + written, size - static_cast<std::size_t>(written), " ts=%llu.%.9u",
                      time.seconds, time.nanoseconds);
    }
}

}  // namespace

void DisplayIOData(const char* name, ptp_time_t* timestamp, const char* text, unsigned char* frame,
                   int length) {
    const int level = traceLevel();
    if ((level & kFrameTraceBit) == 0 || level <= kFrameTraceAbove) {
        return;
    }
    unsigned char header[sizeof(ptpv2hdr_t)] = {};
    std::copy_n(frame, std::clamp<int>(length, 0, sizeof header), header);
    char row[128];
    FrameRow{header, *timestamp}.write(row, sizeof row);
    const unsigned long long ns = toNs(*timestamp);
    const auto milliseconds = static_cast<int>(ns % kNsPerSecond / kNsPerMillisecond);
    const auto wireLength =
        static_cast<int>(wire::messageLength(header) + ethernet::kUntaggedHeaderSize);
    char line[256];
    if ((wire::messageType(header) & kGeneralMessageBit) == 0) {
        std::snprintf(line, sizeof line, "[%s]%.3d|%10u.%.9d|%.3d: %s %s", name, milliseconds,
                      static_cast<unsigned int>(timestamp->seconds),
                      static_cast<int>(timestamp->nanoseconds), wireLength, text, row);
    } else {
        std::snprintf(line, sizeof line, "[%s]%.3d|                    |%.3d: %s %s", name,
                      milliseconds, wireLength, text, row);
    }
    printRoleMarked(line);
}
