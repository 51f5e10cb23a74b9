#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "tools/tsyn/CrcField.h"

namespace tsyn {

using DataIdList = std::array<unsigned char, 16>;

enum class DefectKind { kCrc, kLength, kMalformed, kGap, kRepeat, kBackwards, kCut, kFew };

const char* defectKindName(DefectKind kind);

/** What is wrong with one part of a message. */
struct Defect {
    DefectKind kind;
    std::string part;  /**< TLV or sub-TLV, or the message type */
    std::string field; /**< field of the part as the standards write it */
    std::string text;  /**< "is ..., should be ..." */
};

struct FollowUpCheck {
    bool hasAutosarTlv = false;
    std::array<unsigned int, kCrcFieldCount> right{};
    std::array<unsigned int, kCrcFieldCount> wrong{};
    std::vector<Defect> defects;
};

/** Checks the TLVs of a Follow_Up, every AUTOSAR CRC with the data ID of its sequenceId.
 *  message: the whole header and messageLength bytes at least. */
FollowUpCheck checkFollowUpTlvs(const unsigned char* message, const DataIdList& dataIds);

}  // namespace tsyn
