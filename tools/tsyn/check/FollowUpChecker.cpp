#include "tools/tsyn/check/FollowUpChecker.h"

#include <cinttypes>
#include <cstdio>

#include "tools/tsyn/check/PtpFields.h"

namespace tsyn {
namespace {

std::string sourceText(const unsigned char* message) {
    char text[32];
    std::snprintf(text, sizeof text, "%016" PRIx64 "-%u",
                  ptp::number(message + ptp::kSourcePortIdentityAt, ptp::kClockIdentitySize),
                  ptp::number16(message + ptp::kSourcePortNumberAt));
    return text;
}

/** What counts its own sequence ids. A response takes over the id of its request, so that the
 *  requester belongs to it. */
std::string sequenceKey(const unsigned char* message, std::size_t size) {
    const unsigned int type = ptp::messageType(message);
    std::string key{static_cast<char>(type), static_cast<char>(message[ptp::kDomainNumberAt])};
    const auto append = [&key, message](std::size_t offset) {
        key.append(reinterpret_cast<const char*>(message) + offset, ptp::kPortIdentitySize);
    };
    append(ptp::kSourcePortIdentityAt);
    const bool isResponse = type == ptp::kPdelayResp || type == ptp::kPdelayRespFollowUp;
    if (isResponse && size >= ptp::kPdelayResponseSize) {
        append(ptp::kRequestingPortIdentityAt);
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
    case ptp::kSync:
        return "Sync";
    case ptp::kPdelayReq:
        return "Pdelay_Req";
    case ptp::kPdelayResp:
        return "Pdelay_Resp";
    case ptp::kFollowUp:
        return "Follow_Up";
    case ptp::kPdelayRespFollowUp:
        return "Pdelay_Resp_Follow_Up";
    case ptp::kAnnounce:
        return "Announce";
    case ptp::kSignaling:
        return "Signaling";
    case ptp::kManagement:
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
    if (payload.size < ptp::kHeaderSize) {
        const bool cut = frame.captured < frame.onWire;
        report(frame, nullptr,
               {cut ? DefectKind::kCut : DefectKind::kMalformed, "PTP message", "header",
                "has " + std::to_string(payload.size) + " of its " +
                    std::to_string(ptp::kHeaderSize) + " bytes"});
        return;
    }
    takeMessage(frame, payload);
}

void FollowUpChecker::finish(unsigned long leastFrames) {
    const unsigned long ptpFrames = result_.frames - result_.notPtp;
    if (ptpFrames < leastFrames) {
        Finding finding;
        finding.defect = {DefectKind::kFew, "capture", "PTP frames",
                          "are " + std::to_string(ptpFrames) + ", should be " +
                              std::to_string(leastFrames) + " at least; the right interface?"};
        result_.findings.push_back(std::move(finding));
    }
}

void FollowUpChecker::takeMessage(const CaptureFrame& frame, const PtpPayload& payload) {
    const unsigned char* const message = payload.bytes;
    const unsigned int type = ptp::messageType(message);
    const unsigned int version = ptp::version(message);
    ++result_.byType[type];
    if (version != 2) {
        report(frame, message,
               {DefectKind::kMalformed, messageTypeName(type), "versionPTP",
                "is " + std::to_string(version) + ", should be 2"});
        return;
    }
    followSequence(frame, payload);
    const std::size_t length = ptp::messageLength(message);
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
    } else if (type == ptp::kFollowUp) {
        takeFollowUp(frame, message);
    }
}

void FollowUpChecker::takeFollowUp(const CaptureFrame& frame, const unsigned char* message) {
    const unsigned int length = ptp::messageLength(message);
    if (length < ptp::kFollowUpTlvAt) {
        report(frame, message,
               {DefectKind::kLength, messageTypeName(ptp::kFollowUp), "messageLength",
                "is " + std::to_string(length) + ", should be " +
                    std::to_string(ptp::kFollowUpTlvAt) + " at least"});
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
    const unsigned int current = ptp::sequenceId(message);
    const auto [position, isFirst] =
        lastSequenceIds_.try_emplace(sequenceKey(message, payload.size), current);
    if (isFirst) {
        return;
    }
    std::optional<Defect> defect =
        sequenceDefect(messageTypeName(ptp::messageType(message)), position->second, current);
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
        finding.sequenceId = ptp::sequenceId(message);
    }
    finding.defect = std::move(defect);
    result_.findings.push_back(std::move(finding));
}

}  // namespace tsyn
