#include "Handlers.h"
#include "base/Extended80.h"
#include "tests/support/Vectors.h"

namespace {

class PdelayRespond : public Handlers {
protected:
    /** The answers to a request; both transmissions are stamped. */
    std::vector<std::vector<unsigned char>> answersTo(const std::vector<unsigned char>& request,
                                                      unsigned long long rxNs,
                                                      unsigned long long txNs) {
        platform().txTimes = {txNs, txNs + 5000};
        EXPECT_EQ(handle(request, rxNs), 1U);
        EXPECT_EQ(platform().sent.size(), 2U);
        std::vector<std::vector<unsigned char>> sent;
        sent.swap(platform().sent);
        sent.resize(2);
        return sent;
    }
};

const char kRequest[] =
    "12020036050002080102030405060708000000000222"
    "33fffe4455aa00070042050000006553f1000000000000000000000000000000";

TEST_F(PdelayRespond, AnswersAsEveryVectorTells) {
    for (const nlohmann::json& vector : vectors("pdelay_responder")) {
        storeExtended(record.rateRatio1, fromX87(vector.at("R")));
        record.localTime = toU64(vector.at("A"));
        record.masterOffset = toS64(vector.at("B"));
        const auto answers = answersTo(fromHex(vector.at("request")), toU64(vector.at("rx")),
                                       toU64(vector.at("tx")));
        EXPECT_EQ(toHex(answers[0]), vector.at("response")) << vector;
        EXPECT_EQ(toHex(answers[1]), vector.at("followUp")) << vector;
        long long correction = 0;
        std::memcpy(&correction, &answers[1].at(8), sizeof correction);
        EXPECT_EQ(correction, toS64(vector.at("correction"))) << vector;
    }
}

TEST_F(PdelayRespond, KeepsTheSequenceIdAndTheDomainOfTheRequest) {
    for (const std::vector<unsigned char>& answer : answersTo(fromHex(kRequest), 1, 2)) {
        EXPECT_EQ(toHex(&answer.at(30), 2), "0042");
        EXPECT_EQ(answer.at(4), 5);
    }
}

TEST_F(PdelayRespond, NamesTheRequesterAndItself) {
    for (const std::vector<unsigned char>& answer : answersTo(fromHex(kRequest), 1, 2)) {
        EXPECT_EQ(toHex(&answer.at(44), 10), "022233fffe4455aa0007");
        EXPECT_EQ(toHex(&answer.at(20), 10), "001b21fffeaabbcc0007");
    }
}

TEST_F(PdelayRespond, TwoStepFlagStandsAloneInTheResponseAndIsClearInTheFollowUp) {
    std::vector<unsigned char> request = fromHex(kRequest);
    request[6] = 0xFD;
    const auto answers = answersTo(request, 1, 2);
    EXPECT_EQ(toHex(&answers[0].at(6), 2), "0208");
    EXPECT_EQ(toHex(&answers[1].at(6), 2), "0008");
}

TEST_F(PdelayRespond, FollowUpKeepsTheOtherFlagsOfItsResponse) {
    PTPMsgPathDelayResp response(0);
    response.data()[6] = 0xFF;
    PTPMsgPathDelayRespFollowUp answer(0);
    answer.service = &service;
    ptp_time_t tx{};
    EXPECT_EQ(answer.processOutgoing(&response, &tx), 1U);
    EXPECT_EQ(answer.data()[6], 0xFD);
}

TEST_F(PdelayRespond, LogMessageIntervalIsUnknownInBothAnswers) {
    for (const std::vector<unsigned char>& answer : answersTo(fromHex(kRequest), 1, 2)) {
        EXPECT_EQ(answer.at(33), 0x7F);
    }
}

TEST_F(PdelayRespond, TimestampsAreReceptionAndTransmission) {
    const auto answers = answersTo(fromHex(kRequest), 1000000005, 2999999999);
    EXPECT_EQ(toHex(&answers[0].at(34), 10), "00000000000100000005");
    EXPECT_EQ(toHex(&answers[1].at(34), 10), "0000000000023b9ac9ff");
}

TEST_F(PdelayRespond, TypeIsSetWhateverTheTransportOfTheRequest) {
    std::vector<unsigned char> request = fromHex(kRequest);
    request[0] = 0xE2;
    const auto answers = answersTo(request, 1, 2);
    EXPECT_EQ(answers[0].at(0), 0x13);
    EXPECT_EQ(answers[1].at(0), 0x1A);
}

TEST_F(PdelayRespond, CorrectionWithRate1AndEqualTimesIsTheTimeSinceThen) {
    storeExtended(record.rateRatio1, 1.0L);
    record.localTime = 4000;
    record.masterOffset = 4000;
    const auto answers = answersTo(fromHex(kRequest), 1, 4258);
    EXPECT_EQ(toHex(&answers[1].at(8), 8), "0201000000000000");
}

TEST_F(PdelayRespond, CorrectionBeforeTheCrossTimestampIsTruncatedTowardZero) {
    storeExtended(record.rateRatio1, 0.5L);
    record.localTime = 1003;
    record.masterOffset = 1003;
    const auto answers = answersTo(fromHex(kRequest), 1, 1000);
    EXPECT_EQ(toHex(&answers[1].at(8), 8), "ffffffffffffffff");
}

TEST_F(PdelayRespond, TouchesNoPortRecord) {
    answersTo(fromHex(kRequest), 1, 2);
    EXPECT_TRUE(clockItems.empty());
}

TEST_F(PdelayRespond, AMasterAnswersToo) {
    block.cfg.role = 1;
    EXPECT_EQ(answersTo(fromHex(kRequest), 1, 2)[0].at(0), 0x13);
}

TEST_F(PdelayRespond, ReportsAnInvalidConfiguredDomainOncePerAnswer) {
    block.cfg.Domain = 16;
    const std::string output = printedBy([&] { answersTo(fromHex(kRequest), 1, 2); });
    EXPECT_EQ(occurrences(output, "Invalid domain number ... :16 \n"), 2);
}

}  // namespace
