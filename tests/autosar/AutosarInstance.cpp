#include "tests/autosar/AutosarInstance.h"
#include "tests/support/Hex.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr std::size_t kInformationTlv = 44;
constexpr std::size_t kAutosarTlv = 76;

InstanceBlock& freshBlock() {
    DbgTraceLevel = 0;
    InstanceBlock& block = InterfaceDataManager::getInstance()->block;
    block = InstanceBlock{};
    for (unsigned int i = 0; i < sizeof block.cfg.DataIDList; ++i) {
        block.cfg.DataIDList[i] = static_cast<unsigned char>(0x10 + i);
    }
    block.cfg.TxCrcMode = 1;
    return block;
}

Bytes bytesOf(const TLVObject& tlv) {
    return {tlv.bytes, tlv.bytes + tlv.count};
}

}  // namespace

FollowUp::FollowUp(const Bytes& message) : buffer{} {
    std::copy(message.begin(), message.end(), buffer);
}

TLVObject FollowUp::receivedTlv() const {
    constexpr unsigned int kSurplus = 10;
    TLVObject tlv;
    std::memcpy(tlv.bytes, buffer + kAutosarTlv, sizeof buffer - kAutosarTlv);
    tlv.count = wire::messageLength(buffer) - kAutosarTlv + kSurplus;
    return tlv;
}

AutosarInstance::AutosarInstance() : block(freshBlock()) {}

Bytes AutosarInstance::subTlv(int type, FollowUp& followUp) {
    return bytesOf(TLVObject(type, followUp.header(), 0));
}

Bytes AutosarInstance::built(FollowUp& followUp, unsigned int mask) {
    constexpr int kTypes[] = {0x28, 0x50, 0x51, 0x60, 0x61, 0x44, 0x34};
    Bytes all = bytesOf(TLVObject(0, nullptr, static_cast<unsigned char>(mask)));
    for (unsigned int bit = 0; bit < 7; ++bit) {
        if ((mask >> bit & 1U) != 0) {
            const Bytes one = subTlv(kTypes[bit], followUp);
            all.insert(all.end(), one.begin(), one.end());
        }
    }
    wire::store16(followUp.buffer + wire::kMessageLength,
                  static_cast<unsigned int>(kInformationTlv + all.size()));
    return all;
}

Verdict AutosarInstance::process(TLVObject tlv, FollowUp& followUp) {
    try {
        return ProcessIncomingAutoSARTLVObjects(&tlv, followUp.header());
    } catch (const char* text) {
        EXPECT_STREQ("No more data", text);
        return std::nullopt;
    }
}

Bytes securedMessage() {
    return fromHex(
        "1802006600000008000000000000000000000000001b21fffeaabbcc0003012302fd00006553f1003ade68b1"
        "0003001c0080c200000100000000000000000000000000000000000000000000"
        "000300161a75fb60567628033f8afd50020171600502112200d7");
}

void configure(InstanceBlock& block, const nlohmann::json& vector) {
    const Bytes ids = fromHex(vector.at("DataIDList"));
    std::copy(ids.begin(), ids.end(), block.cfg.DataIDList);
    block.cfg.TxCrcMode = vector.at("TxCrcMode");
    block.cfg.CrcTimeFlags = vector.at("CrcTimeFlags");
    block.timeBaseStatus = vector.at("timeBaseStatus");
    block.userDataLength = vector.at("userDataLength");
    const Bytes user = fromHex(vector.at("userBytes"));
    std::copy(user.begin(), user.end(), block.userBytes);
}
