#pragma once

#include "include/gPtpTimeQuality.h"
#include "tools/tsyn/doctor/Gates.h"

/** Evidence of a slave that is well, for tests to spoil: 24 Sync pairs and 3 delay exchanges in 3
 *  seconds, a daemon of the standard profile with the process 100. */
namespace tsyn::doctor {

constexpr int kDaemonPid = 100;
constexpr unsigned char kMasterMac = 0x0A;
constexpr unsigned char kOwnMac = 0x0B;

// messageType of a frame.
constexpr unsigned int kSync = 0;
constexpr unsigned int kPdelayReq = 2;
constexpr unsigned int kPdelayResp = 3;
constexpr unsigned int kFollowUp = 8;
constexpr unsigned int kPdelayRespFollowUp = 10;

inline bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

Evidence healthySlave();

/** The same cable seen from its other end. */
Evidence healthyMaster();

/** A frame of 60 bytes of message: type, sender, sequenceId; domain 0, untagged. */
Heard frameOf(unsigned int type, unsigned char mac, unsigned int sequenceId, double atS);

/** Changes all frames of a type. */
template <typename Change>
void changeFrames(Evidence& evidence, unsigned int type, Change change) {
    for (Heard& frame : evidence.wire.frames) {
        if ((frame.message[0] & 0xFU) == type) {
            change(frame);
        }
    }
}

/** Takes all frames of a type away. */
void removeFrames(Evidence& evidence, unsigned int type);

/** Name of the first gate that fails, "none" when all is well. */
std::string firstGate(const Evidence& evidence);

/** What a gate found. */
Verdict verdictOf(const Evidence& evidence, const std::string& gate);

gPtpTimeQuality qualityIn(const gPtpTimeDataStruct& record);
void putQuality(gPtpTimeDataStruct& record, const gPtpTimeQuality& quality);

}  // namespace tsyn::doctor
