#include "tools/tsyn/doctor/WireView.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "tools/tsyn/check/FollowUpChecker.h"
#include "tools/tsyn/check/PtpFields.h"

namespace tsyn::doctor {
namespace {

constexpr unsigned int kNsPerSecond = 1000000000;

const unsigned char* bytesOf(const Heard& frame) {
    return frame.message.data();
}

bool isWhole(const Heard& frame) {
    return frame.message.size() >= ptp::kHeaderSize;
}

bool hasVersion(const Evidence& evidence, const Heard& frame) {
    // Of other messages than Sync, no daemon looks at the minor version.
    const bool wholeByte = !evidence.expected.anyMinorVersion && !evidence.expected.master;
    const unsigned int version =
        wholeByte ? frame.message[ptp::kVersionAt] : ptp::version(bytesOf(frame));
    return version == 2;
}

bool meets(const Evidence& evidence, const Heard& frame, Stage stage) {
    switch (stage) {
    case Stage::kAny:
        return true;
    case Stage::kVersion:
        return hasVersion(evidence, frame);
    case Stage::kDomain:
        return frame.message[ptp::kDomainNumberAt] == evidence.expected.domain;
    case Stage::kVlan:
        return frame.vlanId == evidence.expected.vlanId;
    case Stage::kTransport:
        return frame.message[ptp::kMessageTypeAt] >> 4 != 0;
    }
    return false;
}

bool meetsAllUpTo(const Evidence& evidence, const Heard& frame, Stage last) {
    for (const Stage stage : {Stage::kVersion, Stage::kDomain, Stage::kVlan, Stage::kTransport}) {
        if (stage <= last && !meets(evidence, frame, stage)) {
            return false;
        }
    }
    return true;
}

std::string identityText(const unsigned char* identity) {
    char text[32];
    std::snprintf(text, sizeof text, "%016" PRIx64 "-%u",
                  ptp::number(identity, ptp::kClockIdentitySize),
                  ptp::number16(identity + ptp::kClockIdentitySize));
    return text;
}

/** correctionField in ns, truncated. */
long long correctionNs(const Heard& frame) {
    const auto field =
        static_cast<long long>(ptp::number(bytesOf(frame) + ptp::kCorrectionFieldAt, 8));
    return field / 65536;
}

/** When the master sent the Sync, by its own clock. */
long long originNs(const Heard& sync, const Heard& followUp) {
    const unsigned char* const origin = bytesOf(followUp) + ptp::kPreciseOriginTimestampAt;
    const auto seconds = static_cast<long long>(ptp::number(origin, 6));
    const auto ns = static_cast<long long>(ptp::number(origin + 6, 4));
    return seconds * kNsPerSecond + ns + correctionNs(sync) + correctionNs(followUp);
}

}  // namespace

Frames ofType(const Evidence& evidence, unsigned int type, bool own) {
    Frames frames;
    for (const Heard& frame : evidence.wire.frames) {
        if (isWhole(frame) && frame.isOwn == own && ptp::messageType(bytesOf(frame)) == type) {
            frames.push_back(&frame);
        }
    }
    return frames;
}

Frames needed(const Evidence& evidence, Stage stage) {
    Frames frames =
        ofType(evidence, evidence.expected.master ? ptp::kPdelayReq : ptp::kSync, false);
    frames.erase(
        std::remove_if(frames.begin(), frames.end(),
                       [&](const Heard* frame) { return !meetsAllUpTo(evidence, *frame, stage); }),
        frames.end());
    return frames;
}

Frames takenOfType(const Evidence& evidence, unsigned int type, bool own) {
    Frames frames = ofType(evidence, type, own);
    frames.erase(std::remove_if(frames.begin(), frames.end(),
                                [&](const Heard* frame) {
                                    return !meets(evidence, *frame, Stage::kDomain) ||
                                           !meets(evidence, *frame, Stage::kVlan);
                                }),
                 frames.end());
    return frames;
}

std::string portText(const Heard& frame) {
    return identityText(bytesOf(frame) + ptp::kSourcePortIdentityAt);
}

std::string requesterText(const Heard& frame) {
    return frame.message.size() < ptp::kPdelayResponseSize
               ? std::string()
               : identityText(bytesOf(frame) + ptp::kRequestingPortIdentityAt);
}

unsigned int sequenceOf(const Heard& frame) {
    return ptp::sequenceId(bytesOf(frame));
}

std::string macText(const MacAddress& address) {
    char text[18];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", address[0], address[1],
                  address[2], address[3], address[4], address[5]);
    return text;
}

std::string countText(const Evidence& evidence, bool own) {
    std::string text;
    for (unsigned int type = 0; type < kMessageTypeCount; ++type) {
        const std::size_t count = ofType(evidence, type, own).size();
        if (count != 0) {
            text +=
                (text.empty() ? "" : ", ") + std::to_string(count) + " " + messageTypeName(type);
        }
    }
    return text;
}

std::map<std::string, unsigned int> portsOf(const Frames& frames) {
    std::map<std::string, unsigned int> ports;
    for (const Heard* frame : frames) {
        ++ports[portText(*frame)];
    }
    return ports;
}

Frames masterSyncs(const Evidence& evidence) {
    Frames syncs = evidence.expected.master ? takenOfType(evidence, ptp::kSync, true)
                                            : needed(evidence, Stage::kTransport);
    const std::map<std::string, unsigned int> ports = portsOf(syncs);
    const auto most =
        std::max_element(ports.begin(), ports.end(),
                         [](const auto& a, const auto& b) { return a.second < b.second; });
    if (most != ports.end()) {
        syncs.erase(
            std::remove_if(syncs.begin(), syncs.end(),
                           [&](const Heard* sync) { return portText(*sync) != most->first; }),
            syncs.end());
    }
    return syncs;
}

Frames followUpsOf(const Evidence& evidence, const Frames& syncs, bool own) {
    std::map<std::string, const Heard*> known;
    for (const Heard* followUp : takenOfType(evidence, ptp::kFollowUp, own)) {
        if (followUp->message.size() >= ptp::kFollowUpTlvAt) {
            known[portText(*followUp) + "/" + std::to_string(sequenceOf(*followUp))] = followUp;
        }
    }
    Frames followUps;
    for (const Heard* sync : syncs) {
        const auto found = known.find(portText(*sync) + "/" + std::to_string(sequenceOf(*sync)));
        followUps.push_back(found == known.end() ? nullptr : found->second);
    }
    return followUps;
}

Frames answerable(const Evidence& evidence, const Frames& frames) {
    constexpr double kAnswerS = 0.1;
    Frames early;
    for (const Heard* frame : frames) {
        if (frame->atS + kAnswerS < evidence.wire.listenedS) {
            early.push_back(frame);
        }
    }
    return early;
}

std::optional<double> masterRatePpm(const Evidence& evidence) {
    constexpr long long kShortestNs = kNsPerSecond / 2;
    const Frames syncs = masterSyncs(evidence);
    const Frames followUps = followUpsOf(evidence, syncs, evidence.expected.master);
    std::optional<std::size_t> first;
    std::size_t last = 0;
    for (std::size_t i = 0; i < syncs.size(); ++i) {
        if (syncs[i]->rxNs && followUps[i] != nullptr) {
            first = first.value_or(i);
            last = i;
        }
    }
    if (!first) {
        return {};
    }
    const auto localNs = static_cast<long long>(*syncs[last]->rxNs - *syncs[*first]->rxNs);
    const long long masterNs =
        originNs(*syncs[last], *followUps[last]) - originNs(*syncs[*first], *followUps[*first]);
    if (localNs < kShortestNs) {
        return {};
    }
    return 1e6 * static_cast<double>(masterNs - localNs) / static_cast<double>(localNs);
}

}  // namespace tsyn::doctor
