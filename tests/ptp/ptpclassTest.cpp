#include "ptp/ptpclass.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "base/DbgLog.h"
#include "tests/ptp/Handlers.h"
#include "tests/support/Hex.h"
#include "tests/support/Packed.h"
#include "tests/support/Seed.h"

namespace {

class MessageFactory : public Handlers {};
class PortIdentity : public Handlers {};
class MessageTimestamp : public Handlers {};
class HostileMessages : public Handlers {};
class MessagePreset : public Handlers {};

std::vector<unsigned char> frameOfType(unsigned char type, unsigned int messageLength) {
    std::vector<unsigned char> frame(std::max(messageLength, 44U), 0x5A);
    frame[0] = static_cast<unsigned char>(0x10 | type);
    setField(frame, 2, 2, messageLength);
    return frame;
}

/** A message class that keeps the base version of getMsgNumericType. */
class UntypedMessage : public PTPMessage {
public:
    unsigned int processIncoming() override { return 0; }
};

TEST_F(MessageFactory, MakesTheClassOfEachHandledType) {
    EXPECT_NE(nullptr, dynamic_cast<PTPMsgSync*>(received(frameOfType(0, 44)).get()));
    EXPECT_NE(nullptr, dynamic_cast<PTPMsgPathDelayReq*>(received(frameOfType(2, 54)).get()));
    EXPECT_NE(nullptr, dynamic_cast<PTPMsgPathDelayResp*>(received(frameOfType(3, 54)).get()));
    EXPECT_NE(nullptr, dynamic_cast<PTPMsgFollowUp*>(received(frameOfType(8, 76)).get()));
    EXPECT_NE(nullptr,
              dynamic_cast<PTPMsgPathDelayRespFollowUp*>(received(frameOfType(10, 54)).get()));
    EXPECT_NE(nullptr, dynamic_cast<PTPMsgAnnounce*>(received(frameOfType(11, 76)).get()));
}

TEST_F(MessageFactory, TellsTheNumericTypeOfEachClass) {
    for (const int type : {0, 2, 3, 8, 10, 11}) {
        EXPECT_EQ(type,
                  received(frameOfType(static_cast<unsigned char>(type), 76))->getMsgNumericType());
    }
}

TEST_F(MessageFactory, MakesNothingOfOtherTypesAndLogsNothing) {
    const std::string output = printedBy([&] {
        for (const int type : {1, 4, 5, 6, 7, 9, 12, 13, 14, 15}) {
            EXPECT_EQ(nullptr, received(frameOfType(static_cast<unsigned char>(type), 44))) << type;
        }
    });
    EXPECT_EQ("", output);
}

TEST_F(MessageFactory, ReadsTheTypeFromTheLowHalfOfTheFirstByte) {
    std::vector<unsigned char> frame = frameOfType(0, 44);
    for (const int transport : {0x00, 0x10, 0xF0}) {
        frame[0] = static_cast<unsigned char>(transport);
        EXPECT_EQ(0, received(frame)->getMsgNumericType()) << transport;
    }
}

TEST_F(MessageFactory, CopiesMessageLengthBytesAndLeavesTheRestZero) {
    const std::unique_ptr<PTPMessage> message = received(frameOfType(0, 50));
    EXPECT_EQ("5a5a5a5a5a5a0000", toHex(message->data() + 44, 8));
    EXPECT_EQ("105a0032", toHex(message->data(), 4));
}

TEST_F(MessageFactory, CopiesALengthOf255) {
    std::vector<unsigned char> frame = frameOfType(8, 255);
    frame[254] = 0xA5;
    std::unique_ptr<PTPMessage> message;
    const std::string output = printedBy([&] { message = received(frame); });
    EXPECT_EQ(0xA5, message->data()[254]);
    EXPECT_EQ(0, message->data()[255]);
    EXPECT_EQ("", output);
}

TEST_F(MessageFactory, ReportsALengthOf256AndLeavesTheBufferEmpty) {
    std::unique_ptr<PTPMessage> message;
    const std::string output = printedBy([&] { message = received(frameOfType(0, 256)); });
    expectError(output, "getPTPMessageInstance", "Invalid messageLength received: 256 ...");
    ASSERT_NE(nullptr, message);
    EXPECT_TRUE(std::all_of(message->data(), message->data() + 256,
                            [](unsigned char byte) { return byte == 0; }));
}

TEST_F(MessageFactory, ReportsTheLongestLengthOfTheWire) {
    std::vector<unsigned char> frame = frameOfType(2, 54);
    setField(frame, 2, 2, 0xFFFF);
    const std::string output = printedBy([&] { EXPECT_NE(nullptr, received(frame)); });
    EXPECT_EQ(1, occurrences(output, ">Invalid messageLength received: 65535 ...\n"));
}

TEST_F(MessageFactory, AnnounceIsTakenWithoutEffect) {
    const std::string before = image(record);
    EXPECT_EQ(1U, handle(frameOfType(11, 76)));
    EXPECT_EQ(before, image(record));
    EXPECT_TRUE(clockItems.empty());
}

TEST_F(PortIdentity, OfSyncIsItsSource) {
    std::vector<unsigned char> frame = frameOfType(0, 54);
    setField(frame, 20, 8, 0x001B21FFFEAABBCCULL);
    setField(frame, 28, 2, 3);
    EXPECT_EQ(PortKey(7637207744166860LL, 3), received(frame)->retrievePortIdentity());
}

TEST_F(PortIdentity, OfAResponseIsTheRequesterThatItNames) {
    for (const unsigned char type : {3, 10}) {
        std::vector<unsigned char> frame = frameOfType(type, 54);
        setField(frame, 20, 8, 0x022233FFFE4455AAULL);
        setField(frame, 28, 2, 9);
        setField(frame, 44, 8, 0x001B21FFFEAABBCCULL);
        setField(frame, 52, 2, 0x0102);
        EXPECT_EQ(PortKey(7637207744166860LL, 0x0102), received(frame)->retrievePortIdentity());
    }
}

TEST_F(PortIdentity, OfEverythingElseIsItsSource) {
    for (const unsigned char type : {2, 8, 11}) {
        std::vector<unsigned char> frame = frameOfType(type, 54);
        setField(frame, 20, 8, 0xFE0000FFFE000001ULL);
        setField(frame, 28, 2, 0xFFFF);
        setField(frame, 44, 10, 0);
        EXPECT_EQ(PortKey(-144114088597782527LL, 0xFFFF), received(frame)->retrievePortIdentity());
    }
}

TEST_F(MessageTimestamp, IsSecondsTimesABillionPlusNanoseconds) {
    std::vector<unsigned char> frame = frameOfType(8, 76);
    setField(frame, 34, 6, 1);
    setField(frame, 40, 4, 5);
    EXPECT_EQ(1000000005ULL, received(frame)->getPTPMessageTimestamp());
}

TEST_F(MessageTimestamp, TakesNanosecondsOfMoreThanASecond) {
    std::vector<unsigned char> frame = frameOfType(8, 76);
    setField(frame, 34, 6, 2);
    setField(frame, 40, 4, 0xFFFFFFFF);
    EXPECT_EQ(6294967295ULL, received(frame)->getPTPMessageTimestamp());
}

TEST_F(MessageTimestamp, WrapsModulo64Bit) {
    std::vector<unsigned char> frame = frameOfType(8, 76);
    setField(frame, 34, 6, 0xFFFFFFFFFFFFULL);
    setField(frame, 40, 4, 999999999);
    EXPECT_EQ(14555633995661443071ULL, received(frame)->getPTPMessageTimestamp());
}

TEST_F(MessagePreset, ReportsADomainAbove15AndKeepsIt) {
    std::string output = printedBy([] { EXPECT_EQ(15, PTPMsgSync(15, 3).data()[4]); });
    EXPECT_EQ("", output);
    output = printedBy([] { EXPECT_EQ(16, PTPMsgSync(16, 3).data()[4]); });
    expectError(output, "PTPMessage", "Invalid domain number ... :16 ");
}

TEST_F(MessagePreset, OfResponsesNamesPort1AndTheDomain) {
    EXPECT_EQ("13020000070000000000000000000000000000000000000000000000000100000000",
              toHex(PTPMsgPathDelayResp(7).data(), 34));
    EXPECT_EQ("1a020000070000000000000000000000000000000000000000000000000100000000",
              toHex(PTPMsgPathDelayRespFollowUp(7).data(), 34));
}

TEST_F(MessagePreset, BaseTypeIs0UpToTraceLevel2) {
    UntypedMessage message;
    for (const int level : {-1, 0, 2}) {
        DbgTraceLevel = level;
        EXPECT_EQ(0, message.getMsgNumericType());
    }
}

TEST_F(MessagePreset, BaseTypeEndsTheProcessAboveTraceLevel2) {
    UntypedMessage message;
    DbgTraceLevel = 3;
    // What the dying process prints is looked for in its standard error.
    EXPECT_EXIT(
        {
            dup2(STDERR_FILENO, STDOUT_FILENO);
            message.getMsgNumericType();
        },
        ::testing::KilledBySignal(SIGABRT), "^getMsgNumericType  trace line 113\n");
}

/** Position of a virtual method in its class's table, in front of which the destructors stand. */
template <typename Method>
std::ptrdiff_t slotOf(Method method) {
    struct {
        std::ptrdiff_t offsetPlus1, adjustment;
    } parts{};
    static_assert(sizeof parts == sizeof method, "as this C++ ABI has it");
    std::memcpy(&parts, &method, sizeof parts);
    return (parts.offsetPlus1 - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
}

TEST_F(MessagePreset, SlotsAndMembersStandWhereHostsThatReplaceAHandlerFindThem) {
    EXPECT_EQ(2, slotOf(&PTPMessage::getMsgNumericType));
    EXPECT_EQ(3, slotOf(&PTPMessage::processIncoming));
    PTPMsgSync sync;
    const auto* const object = reinterpret_cast<unsigned char*>(&sync);
    const unsigned char* buffer = nullptr;
    std::memcpy(&buffer, object + 2 * sizeof(void*), sizeof buffer);
    EXPECT_EQ(object + sizeof(void*), reinterpret_cast<unsigned char*>(&sync.service));
    EXPECT_EQ(sync.data(), buffer);
    EXPECT_EQ(object + 3 * sizeof(void*), reinterpret_cast<unsigned char*>(&sync.rxTimestamp));
    EXPECT_EQ(object + 3 * sizeof(void*) + 12, reinterpret_cast<unsigned char*>(&sync.frameLength));
}

/** One frame with random content; the length field is the frame's or any other. */
std::vector<unsigned char> randomFrame(unsigned char type, unsigned int length,
                                       unsigned long long noise, std::mt19937_64& random) {
    std::vector<unsigned char> frame(std::max(length, 44U));
    std::generate(frame.begin(), frame.end(), [&] { return static_cast<unsigned char>(random()); });
    frame[0] = static_cast<unsigned char>((frame[0] & 0xF0) | type);
    setField(frame, 2, 2, length);
    if (noise % 2 == 0) {
        frame[0] |= 0x10;
        frame[1] = 2;
        frame[4] = 0;
        frame[32] = 0;
    }
    return frame;
}

TEST_F(HostileMessages, OfAnyLengthAndContentAreHandledOrRefused) {
    platform().answersEverything = true;
    std::mt19937_64 random = seededGenerator();
    unsigned int syncs = 0;
    printedBy([&] {
        for (unsigned int length = 0; length <= 255; ++length) {
            for (const unsigned char type : {0, 2, 3, 8, 10, 11}) {
                const std::vector<unsigned char> frame =
                    randomFrame(type, length, random(), random);
                const unsigned int accepted = record.acceptedSync;
                const unsigned int result = handle(frame, random());
                const bool isAnswer = type == 3 || type == 10;
                EXPECT_TRUE(isAnswer || result == (type == 0 ? record.acceptedSync - accepted : 1))
                    << toHex(frame);
                syncs += type == 0 ? 1 : 0;
            }
        }
    });
    EXPECT_EQ(syncs, record.acceptedSync + record.rejectedSync);
    EXPECT_GT(valueOf(record.acceptedSync), 0U);
    EXPECT_GT(valueOf(record.rejectedSync), 0U);
}

TEST_F(HostileMessages, LongerThanTheBufferReachTheHandlersEmpty) {
    platform().answersEverything = true;
    std::mt19937_64 random = seededGenerator();
    const std::string output = printedBy([&] {
        for (const unsigned char type : {0, 2, 3, 8, 10, 11}) {
            std::vector<unsigned char> frame = randomFrame(type, 64, random(), random);
            setField(frame, 2, 2, 256 + random() % 65280);
            // An empty Sync has no transport bit, an empty exchange no times.
            const bool needsContent = type == 0 || type == 10;
            EXPECT_EQ(needsContent ? 0U : 1U, handle(frame, random())) << toHex(frame);
        }
    });
    EXPECT_EQ(6, occurrences(output, "Invalid messageLength received: "));
    EXPECT_EQ(1U, valueOf(record.rejectedSync));
    ASSERT_EQ(2U, platform().sent.size());
    EXPECT_EQ(0U, platform().sent[0].size());
    EXPECT_EQ(0U, platform().sent[1].size());
}

TEST_F(HostileMessages, AnswersToShortRequestsCarryNoOldMemory) {
    platform().answersEverything = true;
    std::vector<unsigned char> request = frameOfType(2, 44);
    setField(request, 2, 2, 34);
    EXPECT_EQ(1U, handle(request));
    ASSERT_EQ(2U, platform().sent.size());
    EXPECT_EQ(34U, platform().sent[0].size());
    EXPECT_EQ(34U, platform().sent[1].size());
}

TEST_F(HostileMessages, AnswersToLongRequestsArePaddedWithZeros) {
    platform().answersEverything = true;
    EXPECT_EQ(1U, handle(frameOfType(2, 255)));
    ASSERT_EQ(2U, platform().sent.size());
    for (const std::vector<unsigned char>& answer : platform().sent) {
        ASSERT_EQ(255U, answer.size());
        EXPECT_TRUE(std::all_of(answer.begin() + 54, answer.end(),
                                [](unsigned char byte) { return byte == 0; }));
    }
}

}  // namespace
