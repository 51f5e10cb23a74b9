#include "tools/tsyn/check/FollowUpChecker.h"

#include <cinttypes>
#include <cstdio>

#include "ptp/ptpwire.h"

namespace tsyn {
namespace {

constexpr std::size_t kHeaderSize = sizeof(ptpv2hdr_t);
constexpr unsigned int kVersionMask = 0x0F;

std::string sourceText(const unsigned char* message) {
    char text[32];
    std::snprintf(text, sizeof text, "%016" PRIx64 "-%u",
                  wire::loadBigEndian<8>(message + wire::kSourceClockIdentity),
                  wire::load16(message + wire::kSourcePortNumber));
    return text;
}

/** What counts its own sequence ids. A response takes over the id of its request, so that the
 *  requester belongs to it. */
std::string sequenceKey(const unsigned char* message, std::size_t size) {
    constexpr std::size_t kPortIdentitySize = 10;
    const unsigned int type = wire::messageType(message);
    std::string key{static_cast<char>(type), static_cast<char>(message[wire::kDomainNumber])};
    const auto append = [&key, message](int offset) {
        key.append(reinterpret_cast<const char*>(message) + offset, kPortIdentitySize);
    };
    append(wire::kSourceClockIdentity);
    const bool isResponse = type == wire::kPdelayResp || type == wire::kPdelayRespFollowUp;
    if (isResponse && size >= wire::kPdelayLength) {
        append(wire::kRequestingClockIdentity);
    }
    return key;
}

std::optional<Defect> sequenceDefect(const std::string& type, unsigned int last,
                                     unsigned int current) {
    constexpr unsigned int kIdMask = 0xFFFF;
    constexpr unsigned int kHalf = 0x8000;
    const unsigned int step = (current - last) & kIdMask;
    if (step == 1) {
        return {};
    }
    if (step == 0) {
        return Defect{DefectKind::kRepeat, type, "sequenceId", "repeats"};
    }
    if (step >= kHalf) {
        return Defect{DefectKind::kBackwards, type, "sequenceId",
                      "follows " + std::to_string(last) + ": restarted or out of order"};
    }
    const unsigned int firstMissing = (last + 1) & kIdMask;
    const unsigned int lastMissing = (current - 1) & kIdMask;
    std::string range = std::to_string(firstMissing);
    if (lastMissing != firstMissing) {
        range += " to " + std::to_string(lastMissing);
    }
    return Defect{DefectKind::kGap, type, "sequenceId",
                  "follows " + std::to_string(last) + ": " + std::to_string(step - 1) +
                      " missing (" + range + ")"};
}

}  // namespace

std::string messageTypeName(unsigned int messageType) {
    switch (messageType) {
    case wire::kSync:
        return "Sync";
    case wire::kPdelayReq:
        return "Pdelay_Req";
    case wire::kPdelayResp:
        return "Pdelay_Resp";
    case wire::kFollowUp:
        return "Follow_Up";
    case wire::kPdelayRespFollowUp:
        return "Pdelay_Resp_Follow_Up";
    case wire::kAnnounce:
        return "Announce";
    case 12:
        return "Signaling";
    case 13:
        return "Management";
    default:
        return "type " + std::to_string(messageType);
    }
}

void FollowUpChecker::add(const CaptureFrame& frame) {
    ++result_.frames;
    const PtpPayload payload = findPtp(frame);
    if (!payload.isPtp) {
        ++result_.notPtp;
        return;
    }
    result_.vlanTagged += payload.vlanTagged ? 1 : 0;
    if (payload.size < kHeaderSize) {
        const bool cut = frame.captured < frame.onWire;
        report(frame, nullptr,
               {cut ? DefectKind::kCut : DefectKind::kMalformed, "PTP message", "header",
                "has " + std::to_string(payload.size) + " of its " + std::to_string(kHeaderSize) +
                    " bytes"});
        return;
    }
    takeMessage(frame, payload);
}

void FollowUpChecker::takeMessage(const CaptureFrame& frame, const PtpPayload& payload) {
    const unsigned char* const message = payload.bytes;
    const unsigned int type = wire::messageType(message);
    const unsigned int version = message[wire::kVersion] & kVersionMask;
    ++result_.byType[type];
    if (version != wire::kVersionPtp) {
        report(frame, message,
               {DefectKind::kMalformed, messageTypeName(type), "versionPTP",
                "is " + std::to_string(version) + ", should be 2"});
        return;
    }
    followSequence(frame, payload);
    const std::size_t length = wire::messageLength(message);
    if (length > payload.size && frame.captured < frame.onWire) {
        report(frame, message,
               {DefectKind::kCut, messageTypeName(type), "messageLength",
                "is " + std::to_string(length) + ", only " + std::to_string(payload.size) +
                    " bytes were captured; capture whole frames"});
    } else if (length > payload.size) {
        report(
            frame, message,
            {DefectKind::kLength, messageTypeName(type), "messageLength",
             "is " + std::to_string(length) + ", the frame holds " + std::to_string(payload.size)});
    } else if (type == wire::kFollowUp) {
        takeFollowUp(frame, message);
    }
}

void FollowUpChecker::takeFollowUp(const CaptureFrame& frame, const unsigned char* message) {
    const unsigned int length = wire::messageLength(message);
    if (length < wire::kFollowUpTlv) {
        report(frame, message,
               {DefectKind::kLength, messageTypeName(wire::kFollowUp), "messageLength",
                "is " + std::to_string(length) + ", should be " +
                    std::to_string(wire::kFollowUpTlv) + " at least"});
        return;
    }
    FollowUpCheck check = checkFollowUpTlvs(message, dataIds_);
    result_.autosarFollowUps += check.hasAutosarTlv ? 1 : 0;
    for (std::size_t field = 0; field < kCrcFieldCount; ++field) {
        result_.right[field] += check.right[field];
        result_.wrong[field] += check.wrong[field];
    }
    for (Defect& defect : check.defects) {
        report(frame, message, std::move(defect));
    }
}

void FollowUpChecker::followSequence(const CaptureFrame& frame, const PtpPayload& payload) {
    const unsigned char* const message = payload.bytes;
    const unsigned int current = wire::sequenceId(message);
    const auto [position, isFirst] =
        lastSequenceIds_.try_emplace(sequenceKey(message, payload.size), current);
    if (isFirst) {
        return;
    }
    std::optional<Defect> defect =
        sequenceDefect(messageTypeName(wire::messageType(message)), position->second, current);
    position->second = current;
    if (defect) {
        report(frame, message, std::move(*defect));
    }
}

void FollowUpChecker::report(const CaptureFrame& frame, const unsigned char* message,
                             Defect defect) {
    Finding finding;
    finding.frame = frame.number;
    finding.timeNs = frame.timeNs;
    if (message != nullptr) {
        finding.source = sourceText(message);
        finding.sequenceId = wire::sequenceId(message);
    }
    finding.defect = std::move(defect);
    result_.findings.push_back(std::move(finding));
}

}  // namespace tsyn
