#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "api/InterfaceDataManager.h"
#include "autosar/TLVObject.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/Vectors.h"

using Bytes = std::vector<unsigned char>;

/** A Follow_Up message in a buffer of the size that the daemon uses. */
struct FollowUp {
    explicit FollowUp(const Bytes& message);

    ptpv2hdr_t* header() { return reinterpret_cast<ptpv2hdr_t*>(buffer); }

    /** The received TLV as the daemon hands it over: ten bytes more than the message has. */
    TLVObject receivedTlv() const;

    alignas(ptpv2hdr_t) unsigned char buffer[256];
};

/** What became of a received TLV: its result, or nothing when it ended with "No more data". */
using Verdict = std::optional<unsigned int>;

/** An instance with the data IDs 10 to 1F, CRCs on, everything else zero, and trace level 0. */
class AutosarInstance : public testing::Test {
protected:
    AutosarInstance();

    /** Sends the sub-TLVs of a mask as the host configured them: the bytes behind the header's
     *  TLV, from offset 44 on. */
    static Bytes built(FollowUp& followUp, unsigned int mask);

    /** Bytes of one sub-TLV. */
    static Bytes subTlv(int type, FollowUp& followUp);

    static Verdict process(TLVObject tlv, FollowUp& followUp);

    InstanceBlock& block;
};

/** Follow_Up of sequenceId 0x0123 with the secured time, status and user data sub-TLVs. */
Bytes securedMessage();

/** Sets everything that a vector says about the instance. */
void configure(InstanceBlock& block, const nlohmann::json& vector);
