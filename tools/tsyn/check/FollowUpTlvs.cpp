#include "tools/tsyn/check/FollowUpTlvs.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "tools/tsyn/check/Crc8.h"
#include "tools/tsyn/check/PtpFields.h"

// A second, independent implementation of the sub-TLVs and of what their CRCs cover: a fault in the
// library's tables must not hide itself, so that nothing here comes from the library.

namespace tsyn {
namespace {

constexpr std::size_t kTlvHeadSize = 4;
constexpr std::size_t kOrganizationFieldsSize = 6;
constexpr std::size_t kSubTlvHeadSize = 2;
constexpr unsigned int kOrganizationExtension = 3;
constexpr unsigned int kIeee8021 = 0x0080C2;
constexpr unsigned int kInformationSubType = 1;
constexpr std::size_t kInformationLength = 28;
constexpr unsigned int kAutosar = 0x1A75FB;
constexpr unsigned int kAutosarSubType = 0x605676;

enum SubTlvType : unsigned char {
    kTimeSecured = 0x28,
    kOfsNotSecured = 0x34,
    kOfsSecured = 0x44,
    kStatusSecured = 0x50,
    kStatusNotSecured = 0x51,
    kUserDataSecured = 0x60,
    kUserDataNotSecured = 0x61,
};

struct SubTlvKind {
    unsigned char type;
    std::size_t contentSize;
    const char* name;
};

constexpr SubTlvKind kSubTlvKinds[] = {
    {kTimeSecured, 3, "Time Secured"},
    {kOfsNotSecured, 17, "OFS Not Secured"},
    {kOfsSecured, 17, "OFS Secured"},
    {kStatusSecured, 2, "Status Secured"},
    {kStatusNotSecured, 2, "Status Not Secured"},
    {kUserDataSecured, 5, "UserData Secured"},
    {kUserDataNotSecured, 5, "UserData Not Secured"},
};

/** A header field that a bit of CrcTimeFlags puts under a time CRC. */
struct CoveredField {
    unsigned char flag;
    std::size_t offset;
    std::size_t size;
};

constexpr CoveredField kTime0Fields[] = {{0x02, ptp::kDomainNumberAt, 1},
                                         {0x08, ptp::kSourcePortNumberAt, 2},
                                         {0x20, ptp::kPreciseOriginTimestampAt, 10}};
constexpr CoveredField kTime1Fields[] = {{0x01, ptp::kMessageLengthAt, 2},
                                         {0x04, ptp::kCorrectionFieldAt, 8},
                                         {0x10, ptp::kSequenceIdAt, 2}};

std::string hexText(const char* format, unsigned int found, unsigned int wanted) {
    char text[96];
    std::snprintf(text, sizeof text, format, found, wanted);
    return text;
}

std::string isButShould(std::size_t found, std::size_t wanted) {
    return "is " + std::to_string(found) + ", should be " + std::to_string(wanted);
}

const SubTlvKind* findKind(unsigned char type) {
    const auto* const found =
        std::find_if(std::begin(kSubTlvKinds), std::end(kSubTlvKinds),
                     [type](const SubTlvKind& kind) { return kind.type == type; });
    return found != std::end(kSubTlvKinds) ? found : nullptr;
}

/** True when the bytes are whole TLVs, the last of which ends with them. */
bool areWholeTlvs(const unsigned char* bytes, std::size_t size) {
    while (size >= kTlvHeadSize && kTlvHeadSize + ptp::number16(bytes + 2) <= size) {
        const std::size_t whole = kTlvHeadSize + ptp::number16(bytes + 2);
        bytes += whole;
        size -= whole;
    }
    return size == 0;
}

/** The TLVs of one Follow_Up on their way through the checks. */
class TlvWalk {
public:
    TlvWalk(const unsigned char* message, const DataIdList& dataIds)
        : message_(message),
          dataId_(dataIds[ptp::sequenceId(message) % dataIds.size()]),
          end_(ptp::messageLength(message)) {}

    FollowUpCheck run() {
        std::size_t at = ptp::kFollowUpTlvAt;
        while (at < end_) {
            at = takeTlv(at);
        }
        return std::move(check_);
    }

private:
    std::size_t takeTlv(std::size_t at);
    void takeInformation(std::size_t length);
    bool takeAutosar(std::size_t at, std::size_t length, std::size_t room);
    bool isAutosar(std::size_t at, std::size_t room);
    void takeSubTlvs(std::size_t at, std::size_t end);
    void takeSubTlv(const SubTlvKind& kind, const unsigned char* content);
    void takeReserved(const SubTlvKind& kind, unsigned char found);

    unsigned char timeCrc(const CoveredField (&fields)[3], unsigned char flags) const;
    unsigned char contentCrc(const unsigned char* content, std::size_t size) const;
    void compare(const SubTlvKind& kind, CrcField field, unsigned char found, unsigned char wanted);
    void report(DefectKind kind, std::string part, std::string field, std::string text) {
        check_.defects.push_back({kind, std::move(part), std::move(field), std::move(text)});
    }

    const unsigned char* message_;
    unsigned char dataId_;
    std::size_t end_;
    FollowUpCheck check_;
};

/** Returns where the next TLV starts, the end of the message when nothing behind can be trusted. */
std::size_t TlvWalk::takeTlv(std::size_t at) {
    const std::string place = "TLV at byte " + std::to_string(at);
    if (end_ - at < kTlvHeadSize) {
        report(DefectKind::kMalformed, place, "tlvType",
               "is cut: messageLength " + std::to_string(end_) + " leaves " +
                   std::to_string(end_ - at) + " bytes");
        return end_;
    }
    const std::size_t room = end_ - at - kTlvHeadSize;
    const std::size_t length = ptp::number16(message_ + at + 2);
    if (at == ptp::kFollowUpTlvAt && room >= kInformationLength &&
        ptp::number24(message_ + at + kTlvHeadSize) == kIeee8021 &&
        ptp::number24(message_ + at + kTlvHeadSize + 3) == kInformationSubType) {
        takeInformation(length);
        return at + kTlvHeadSize + kInformationLength;
    }
    if (isAutosar(at, room)) {
        return takeAutosar(at, length, room) ? at + kTlvHeadSize + length : end_;
    }
    if (length > room) {
        report(DefectKind::kLength, place, "lengthField",
               "is " + std::to_string(length) + ", messageLength " + std::to_string(end_) +
                   " leaves " + std::to_string(room));
        return end_;
    }
    return at + kTlvHeadSize + length;
}

void TlvWalk::takeInformation(std::size_t length) {
    if (length != kInformationLength) {
        report(DefectKind::kLength, "Follow_Up information TLV", "lengthField",
               isButShould(length, kInformationLength));
    }
}

/** Two of the three fields that name the TLV are enough; the third is then reported. */
bool TlvWalk::isAutosar(std::size_t at, std::size_t room) {
    if (room < kOrganizationFieldsSize) {
        return false;
    }
    struct NamingField {
        const char* name;
        unsigned int found;
        unsigned int wanted;
    };
    const unsigned char* const fields = message_ + at + kTlvHeadSize;
    const NamingField naming[] = {
        {"tlvType", ptp::number16(message_ + at), kOrganizationExtension},
        {"organizationId", ptp::number24(fields), kAutosar},
        {"organizationSubType", ptp::number24(fields + 3), kAutosarSubType}};
    const auto differs = [](const NamingField& field) { return field.found != field.wanted; };
    if (std::count_if(std::begin(naming), std::end(naming), differs) > 1) {
        return false;
    }
    for (const NamingField& field : naming) {
        if (differs(field)) {
            report(DefectKind::kMalformed, "AUTOSAR TLV", field.name,
                   hexText("is 0x%06x, should be 0x%06x", field.found, field.wanted));
        }
    }
    return true;
}

/** Returns whether what follows can be read as TLVs. */
bool TlvWalk::takeAutosar(std::size_t at, std::size_t length, std::size_t room) {
    check_.hasAutosarTlv = true;
    const std::size_t first = at + kTlvHeadSize;
    const bool fits = length >= kOrganizationFieldsSize && length <= room &&
                      areWholeTlvs(message_ + first + length, room - length);
    if (!fits) {
        report(DefectKind::kLength, "AUTOSAR TLV", "lengthField",
               "is " + std::to_string(length) + ", messageLength " + std::to_string(end_) +
                   " leaves " + std::to_string(room));
    }
    // A length that cannot be right does not keep the sub-TLVs from being checked.
    takeSubTlvs(first + kOrganizationFieldsSize, first + (fits ? length : room));
    return fits;
}

void TlvWalk::takeSubTlvs(std::size_t at, std::size_t end) {
    while (at < end) {
        const SubTlvKind* const kind = findKind(message_[at]);
        const std::string name =
            kind != nullptr ? kind->name : hexText("sub-TLV type 0x%02x", message_[at], 0);
        if (end - at < kSubTlvHeadSize) {
            report(DefectKind::kMalformed, name, "length", "is cut off by the end of the TLV");
            return;
        }
        const std::size_t length = message_[at + 1];
        const std::size_t size = kind != nullptr ? kind->contentSize : length;
        if (kind == nullptr) {
            report(DefectKind::kMalformed, name, "type", "is not known");
        } else if (length != size) {
            report(DefectKind::kMalformed, name, "length", isButShould(length, size));
        }
        at += kSubTlvHeadSize;
        if (end - at < size) {
            report(DefectKind::kMalformed, name, "length",
                   "needs " + std::to_string(size) + " bytes, the TLV leaves " +
                       std::to_string(end - at));
            return;
        }
        if (kind != nullptr) {
            takeSubTlv(*kind, message_ + at);
        }
        at += size;
    }
}

void TlvWalk::takeSubTlv(const SubTlvKind& kind, const unsigned char* content) {
    const std::size_t last = kind.contentSize - 1;
    switch (kind.type) {
    case kTimeSecured:
        compare(kind, CrcField::kTime0, content[1], timeCrc(kTime0Fields, content[0]));
        compare(kind, CrcField::kTime1, content[2], timeCrc(kTime1Fields, content[0]));
        break;
    case kStatusSecured:
        compare(kind, CrcField::kStatus, content[last], contentCrc(content, last));
        break;
    case kUserDataSecured:
        compare(kind, CrcField::kUserData, content[last], contentCrc(content, last));
        break;
    case kOfsSecured:
        compare(kind, CrcField::kOfs, content[last], contentCrc(content, last));
        break;
    default:
        takeReserved(kind, content[last]);
        break;
    }
}

/** The forms without a CRC carry 0 in its place. */
void TlvWalk::takeReserved(const SubTlvKind& kind, unsigned char found) {
    if (found != 0) {
        report(DefectKind::kMalformed, kind.name, "reserved",
               hexText("is 0x%02x, should be 0x%02x", found, 0));
    }
}

unsigned char TlvWalk::timeCrc(const CoveredField (&fields)[3], unsigned char flags) const {
    Crc8 crc;
    crc.add(flags);
    for (const CoveredField& field : fields) {
        if ((flags & field.flag) != 0) {
            crc.add(message_ + field.offset, field.size);
        }
    }
    return crc.add(dataId_).value();
}

unsigned char TlvWalk::contentCrc(const unsigned char* content, std::size_t size) const {
    return Crc8().add(content, size).add(dataId_).value();
}

void TlvWalk::compare(const SubTlvKind& kind, CrcField field, unsigned char found,
                      unsigned char wanted) {
    const auto index = static_cast<std::size_t>(field);
    ++(found == wanted ? check_.right : check_.wrong)[index];
    if (found != wanted) {
        report(DefectKind::kCrc, kind.name, crcFieldName(field),
               hexText("is 0x%02x, should be 0x%02x", found, wanted));
    }
}

}  // namespace

const char* defectKindName(DefectKind kind) {
    switch (kind) {
    case DefectKind::kCrc:
        return "crc";
    case DefectKind::kLength:
        return "length";
    case DefectKind::kMalformed:
        return "malformed";
    case DefectKind::kGap:
        return "gap";
    case DefectKind::kRepeat:
        return "repeat";
    case DefectKind::kBackwards:
        return "backwards";
    case DefectKind::kCut:
        return "cut";
    case DefectKind::kFew:
        return "few";
    }
    return "unknown";
}

FollowUpCheck checkFollowUpTlvs(const unsigned char* message, const DataIdList& dataIds) {
    return TlvWalk(message, dataIds).run();
}

}  // namespace tsyn
