#include "tools/simulate/flood/FloodFrame.h"

namespace simulate {

namespace {

constexpr std::size_t kEthernetHeader = 14;
constexpr std::size_t kPtpHeader = 34;
constexpr std::size_t kLongestPayload = 1500;

void put(std::vector<std::uint8_t>& frame, std::size_t at, std::uint32_t value, unsigned bytes) {
    for (unsigned i = 0; i < bytes; ++i) {
        frame[at + i] = static_cast<std::uint8_t>(value >> (8 * (bytes - 1 - i)));
    }
}

/** The addresses and the EtherType; the rest is zero. */
std::vector<std::uint8_t> emptyFrame(const MacAddress& source, std::size_t payload) {
    std::vector<std::uint8_t> frame = {0x01, 0x80, 0xC2, 0x00, 0x00, 0x0E};
    frame.insert(frame.end(), source.begin(), source.end());
    frame.insert(frame.end(), {0x88, 0xF7});
    frame.resize(kEthernetHeader + payload);
    return frame;
}

struct Message {
    std::uint8_t type;
    std::uint8_t body; /**< bytes behind the header */
    std::uint16_t flags;
    std::uint8_t control;
};

constexpr Message kSync{0x0, 10, 0x0208, 0};
constexpr Message kPdelayReq{0x2, 20, 0x0008, 5};
constexpr Message kPdelayResp{0x3, 20, 0x0208, 5};

std::vector<std::uint8_t> messageFrame(const Message& message, const MacAddress& source,
                                       std::uint32_t identity, std::uint32_t number) {
    std::vector<std::uint8_t> frame = emptyFrame(source, kPtpHeader + message.body);
    constexpr std::uint8_t kMajorSdoId = 0x10;
    const std::size_t header = kEthernetHeader;
    frame[header] = kMajorSdoId | message.type;
    frame[header + 1] = 0x02;
    put(frame, header + 2, kPtpHeader + message.body, 2);
    put(frame, header + 6, message.flags, 2);
    put(frame, header + 20, 0x0AFFFFFE, 4);
    put(frame, header + 24, identity, 4);
    put(frame, header + 28, 1, 2);
    put(frame, header + 30, number, 2);
    frame[header + 32] = message.control;
    return frame;
}

std::vector<std::uint8_t> randomFrame(const MacAddress& source, std::mt19937_64& random) {
    const std::size_t length = 1 + random() % kLongestPayload;
    std::vector<std::uint8_t> frame = emptyFrame(source, length);
    for (std::size_t i = kEthernetHeader; i < frame.size(); ++i) {
        frame[i] = static_cast<std::uint8_t>(random());
    }
    return frame;
}

}  // namespace

const std::vector<std::string> kFloodKinds = {"sync",       "identities",  "pdelay-req",
                                              "requesters", "pdelay-resp", "malformed"};

std::vector<std::uint8_t> floodFrame(const std::string& kind, const MacAddress& source,
                                     std::uint32_t number, std::mt19937_64& random) {
    constexpr std::uint32_t kOneIdentity = 1;
    if (kind == "malformed") {
        return randomFrame(source, random);
    }
    const bool identities = kind == "identities" || kind == "requesters";
    const bool requests = kind == "pdelay-req" || kind == "requesters";
    const Message& message = requests ? kPdelayReq : kind == "pdelay-resp" ? kPdelayResp : kSync;
    return messageFrame(message, source, identities ? number : kOneIdentity, number);
}

}  // namespace simulate
