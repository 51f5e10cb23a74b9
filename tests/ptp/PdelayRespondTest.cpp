#include "base/Extended80.h"
#include "tests/ptp/Handlers.h"
#include "tests/support/Hex.h"
#include "tests/support/Vectors.h"

namespace {

class PdelayRespond : public Handlers {
protected:
    /** The answers to a request; both transmissions are stamped. */
    std::vector<std::vector<unsigned char>> answersTo(const std::vector<unsigned char>& request,
                                                      unsigned long long rxNs,
                                                      unsigned long long txNs) {
        platform().txTimes = {txNs, txNs + 5000};
        EXPECT_EQ(1U, handle(request, rxNs));
        EXPECT_EQ(2U, platform().sent.size());
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
        EXPECT_EQ(vector.at("response"), toHex(answers[0])) << vector;
        EXPECT_EQ(vector.at("followUp"), toHex(answers[1])) << vector;
        long long correction = 0;
        std::memcpy(&correction, &answers[1].at(8), sizeof correction);
        EXPECT_EQ(toS64(vector.at("correction")), correction) << vector;
    }
}

TEST_F(PdelayRespond, KeepsTheSequenceIdAndTheDomainOfTheRequest) {
    for (const std::vector<unsigned char>& answer : answersTo(fromHex(kRequest), 1, 2)) {
        EXPECT_EQ("0042", toHex(&answer.at(30), 2));
        EXPECT_EQ(5, answer.at(4));
    }
}

TEST_F(PdelayRespond, NamesTheRequesterAndItself) {
    for (const std::vector<unsigned char>& answer : answersTo(fromHex(kRequest), 1, 2)) {
        EXPECT_EQ("022233fffe4455aa0007", toHex(&answer.at(44), 10));
        EXPECT_EQ("001b21fffeaabbcc0007", toHex(&answer.at(20), 10));
    }
}

TEST_F(PdelayRespond, TwoStepFlagStandsAloneInTheResponseAndIsClearInTheFollowUp) {
    std::vector<unsigned char> request = fromHex(kRequest);
    request[6] = 0xFD;
    const auto answers = answersTo(request, 1, 2);
    EXPECT_EQ("0208", toHex(&answers[0].at(6), 2));
    EXPECT_EQ("0008", toHex(&answers[1].at(6), 2));
}

TEST_F(PdelayRespond, FollowUpKeepsTheOtherFlagsOfItsResponseButNotItsInterval) {
    PTPMsgPathDelayResp response(0);
    response.data()[6] = 0xFF;
    response.data()[33] = 5;
    PTPMsgPathDelayRespFollowUp answer(0);
    answer.service = &service;
    ptp_time_t tx{};
    EXPECT_EQ(1U, answer.processOutgoing(&response, &tx));
    EXPECT_EQ(0xFD, answer.data()[6]);
    EXPECT_EQ(0x7F, answer.data()[33]);
}

TEST_F(PdelayRespond, AnswersAreFilledWithResult1) {
    const std::unique_ptr<PTPMessage> request = received(fromHex(kRequest));
    PTPMsgPathDelayResp response(0);
    response.service = &service;
    ptp_time_t rx = {1, 5};
    EXPECT_EQ(1U, response.processOutgoing(request.get(), &rx));
    EXPECT_EQ("00000000000100000005", toHex(response.data() + 34, 10));
}

TEST_F(PdelayRespond, LogMessageIntervalIsUnknownInBothAnswers) {
    for (const std::vector<unsigned char>& answer : answersTo(fromHex(kRequest), 1, 2)) {
        EXPECT_EQ(0x7F, answer.at(33));
    }
}

TEST_F(PdelayRespond, TimestampsAreReceptionAndTransmission) {
    const auto answers = answersTo(fromHex(kRequest), 1000000005, 2999999999);
    EXPECT_EQ("00000000000100000005", toHex(&answers[0].at(34), 10));
    EXPECT_EQ("0000000000023b9ac9ff", toHex(&answers[1].at(34), 10));
}

TEST_F(PdelayRespond, TypeIsSetWhateverTheTransportOfTheRequest) {
    std::vector<unsigned char> request = fromHex(kRequest);
    request[0] = 0xE2;
    const auto answers = answersTo(request, 1, 2);
    EXPECT_EQ(0x13, answers[0].at(0));
    EXPECT_EQ(0x1A, answers[1].at(0));
}

TEST_F(PdelayRespond, CorrectionWithRate1AndEqualTimesIsTheTimeSinceThen) {
    storeExtended(record.rateRatio1, 1.0L);
    record.localTime = 4000;
    record.masterOffset = 4000;
    const auto answers = answersTo(fromHex(kRequest), 1, 4258);
    EXPECT_EQ("0201000000000000", toHex(&answers[1].at(8), 8));
}

TEST_F(PdelayRespond, CorrectionBeforeTheCrossTimestampIsTruncatedTowardZero) {
    storeExtended(record.rateRatio1, 0.5L);
    record.localTime = 1003;
    record.masterOffset = 1003;
    const auto answers = answersTo(fromHex(kRequest), 1, 1000);
    EXPECT_EQ("ffffffffffffffff", toHex(&answers[1].at(8), 8));
}

TEST_F(PdelayRespond, TouchesNoPortRecord) {
    answersTo(fromHex(kRequest), 1, 2);
    EXPECT_TRUE(clockItems.empty());
}

TEST_F(PdelayRespond, AMasterAnswersToo) {
    block.cfg.role = 1;
    EXPECT_EQ(0x13, answersTo(fromHex(kRequest), 1, 2)[0].at(0));
}

TEST_F(PdelayRespond, ReportsAnInvalidConfiguredDomainOncePerAnswer) {
    block.cfg.Domain = 16;
    const std::string output = printedBy([&] { answersTo(fromHex(kRequest), 1, 2); });
    EXPECT_EQ(2, occurrences(output, "Invalid domain number ... :16 \n"));
}

}  // namespace
