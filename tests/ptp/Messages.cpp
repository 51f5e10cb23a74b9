#include "tests/ptp/Messages.h"

#include "tests/support/Hex.h"

std::vector<unsigned char> syncMessage(unsigned int sequenceId) {
    std::vector<unsigned char> message = fromHex(
        "1002002c00000208000000000000000000000000001b21fffeaabbcc0003000000fd0000000000000000"
        "0000");
    setField(message, 30, 2, sequenceId);
    return message;
}

std::vector<unsigned char> followUpMessage(unsigned int sequenceId, unsigned long long t1) {
    std::vector<unsigned char> message = fromHex(
        "1802004c00000008000000000000000000000000001b21fffeaabbcc0003000002fd0000000000000000"
        "00000003001c0080c200000100000000000000000000000000000000000000000000");
    setField(message, 30, 2, sequenceId);
    setTimestamp(message, t1);
    return message;
}

std::vector<unsigned char> pdelayAnswer(unsigned char type, unsigned int sequenceId,
                                        unsigned long long time, unsigned short port) {
    std::vector<unsigned char> message = fromHex(
        "1302003600000208000000000000000000000000022233fffe4455aa00070001057f0000000000000000"
        "0000001b21fffeaabbcc0000");
    message[0] = static_cast<unsigned char>(0x10 | type);
    setField(message, 30, 2, sequenceId);
    setTimestamp(message, time);
    setField(message, 52, 2, port);
    return message;
}

void setField(std::vector<unsigned char>& message, std::size_t offset, std::size_t width,
              unsigned long long value) {
    for (std::size_t i = width; i-- > 0;) {
        message.at(offset + i) = static_cast<unsigned char>(value);
        value >>= 8;
    }
}

void setTimestamp(std::vector<unsigned char>& message, unsigned long long ns) {
    setField(message, 34, 6, ns / 1000000000);
    setField(message, 40, 4, ns % 1000000000);
}
