#include "base/Extended80.h"
#include "ptp/LinkDelay.h"
#include "tests/ptp/PdelayExchange.h"
#include "tests/support/Hex.h"
#include "tests/support/Packed.h"
#include "tests/support/Vectors.h"

namespace {

class PdelayRequest : public PdelayExchange {};

TEST_F(PdelayRequest, FirstRequestStandsInTheVectors) {
    int found = 0;
    for (const nlohmann::json& vector : vectors("messages")) {
        if (vector.at("name") != "Pdelay_Req as first sent, PHC 1700000000.123456789 s") {
            continue;
        }
        ++found;
        PTPMsgPathDelayReq message(vector.at("domain").get<unsigned char>(), kPort);
        platform().sent.clear();
        request(message, 5);
        EXPECT_EQ(vector.at("bytes"), toHex(platform().sent.at(0)));
    }
    EXPECT_EQ(2, found);
}

TEST_F(PdelayRequest, NotesTransmitTimeAndSequenceAndClearsTheExchange) {
    ClockItemMembersType& item = clockItemOf(kPortKey);
    item.t1.ns = item.t2.ns = item.t3.ns = item.t4.ns = 9;
    item.prev_t3.ns = 8;
    PTPMsgPathDelayReq message(0, kPort);
    request(message, 1000000000000ULL);
    EXPECT_EQ(1000000000000ULL, valueOf(item.t1.ns));
    EXPECT_EQ(0U, item.t2.ns + item.t3.ns + item.t4.ns);
    EXPECT_EQ(8U, valueOf(item.prev_t3.ns));
    EXPECT_EQ(1U, item.pdelaySeqNo);
    EXPECT_EQ(600, item.measuredDelay);
}

TEST_F(PdelayRequest, EveryOneNamesTheAddressThatTheCardHasThen) {
    PTPMsgPathDelayReq message(0, kPort);
    request(message, 5);
    platform().clockIdentity[0] = 0x02;
    request(message, 6);
    EXPECT_EQ("021b21fffeaabbcc0003", toHex(&platform().sent.at(1).at(20), 10));
    EXPECT_EQ(6U, valueOf(clockItems.at(PortKey(0x021B21FFFEAABBCCLL, kPort)).t1.ns));
}

TEST_F(PdelayRequest, CounterAndPresetFollowTheVectors) {
    platform().answersEverything = true;
    PTPMsgPathDelayReq message(0, kPort);
    message.service = &service;
    int requests = 0;
    for (const nlohmann::json& vector : vectors("pdelay_sequence_counter")) {
        for (; requests < vector.at("requests").get<int>(); ++requests) {
            clockItemOf(kPortKey).measuredDelay = 1;
            message.processOutgoing();
        }
        const ClockItemMembersType& item = clockItemOf(kPortKey);
        EXPECT_EQ(vector.at("sequenceId").get<unsigned int>(), item.pdelaySeqNo) << vector;
        EXPECT_EQ(vector.at("preset600").get<bool>(), item.measuredDelay == 600) << vector;
        EXPECT_EQ(item.pdelaySeqNo, wire::load16(&platform().sent.back().at(30))) << vector;
    }
}

/** The first vectors are consecutive exchanges of one port, the others have a port each. */
class PdelayVectors : public PdelayRequest {
protected:
    static constexpr std::size_t kOfOnePort = 5;

    void expectDelay(PTPMsgPathDelayReq& message, const nlohmann::json& vector,
                     unsigned short port) {
        const nlohmann::json& times = vector.at("t1..t4");
        const nlohmann::json& out = vector.at("out");
        const std::string output = exchange(
            message, {toU64(times[0]), toU64(times[1]), toU64(times[2]), toU64(times[3])}, port);
        EXPECT_EQ(out.at("measuredDelay").get<int>(),
                  clockItemOf({kPortKey.first, port}).measuredDelay)
            << vector;
        EXPECT_EQ(toS64(out.at("record0")), valueOf(record.linkDelay)) << vector;
        EXPECT_EQ(out.at("accepted").get<bool>() ? 0 : 1, occurrences(output, "out of limits"))
            << vector;
    }

    const nlohmann::json& all = vectors("pdelay_requester");
};

TEST_F(PdelayVectors, OfOnePortCarryItsStateOver) {
    PTPMsgPathDelayReq message(0, kPort);
    for (std::size_t i = 0; i < kOfOnePort; ++i) {
        expectDelay(message, all.at(i), kPort);
    }
}

TEST_F(PdelayVectors, OfOtherPortsStartAnew) {
    ASSERT_GT(all.size(), kOfOnePort);
    for (std::size_t i = kOfOnePort; i < all.size(); ++i) {
        const auto port = static_cast<unsigned short>(100 + i);
        PTPMsgPathDelayReq message(0, port);
        record.linkDelay = 0;
        expectDelay(message, all[i], port);
    }
}

TEST_F(PdelayRequest, PureResultsFollowTheVectors) {
    Times before{};
    for (const nlohmann::json& vector : vectors("pdelay_requester")) {
        const nlohmann::json& times = vector.at("t1..t4");
        const PdelayTimes now{toU64(times[0]), toU64(times[1]), toU64(times[2]), toU64(times[3])};
        // Ports of their own start at the same time again.
        before = now.t1 > before.t1 ? before : Times{};
        const long double ratio = neighbourRateRatio(now.t3, before.t3, now.t4, before.t4);
        const nlohmann::json& out = vector.at("out");
        EXPECT_EQ(out.at("ratio").at("x87"), toX87(ratio)) << vector;
        EXPECT_EQ(toS64(out.at("delay")), meanLinkDelay(now, ratio)) << vector;
        EXPECT_EQ(out.at("accepted").get<bool>(), isDelayInLimits(toS64(out.at("delay"))));
        before = {now.t1, now.t2, now.t3, now.t4};
    }
}

TEST_F(PdelayRequest, LogsAnAcceptedDelay) {
    PTPMsgPathDelayReq message(0, kPort);
    const std::string output =
        exchange(message, {1000000000000, 5000000000500, 5000000100500, 1000000101000});
    EXPECT_EQ(3, occurrences(output, "[INFO] "));
    EXPECT_EQ(1, occurrences(output, ">neighborRateRatio : 1.000000\n"));
    EXPECT_EQ(1, occurrences(output,
                             ">[eth1:] T4-T1=1000000101000-1000000000000 (101000) | "
                             "T3-T2=5000000100500-5000000000500 (100000) \n"));
    EXPECT_EQ(1, occurrences(output, ">[eth1:] Measured delay: 550\n"));
}

TEST_F(PdelayRequest, LogsARejectedDelay) {
    PTPMsgPathDelayReq message(0, kPort);
    const std::string output =
        exchange(message, {1000000000000, 2000000000000, 2000000100000, 1000000200000});
    EXPECT_EQ(1, occurrences(output, "[ERROR] "));
    EXPECT_EQ(1, occurrences(output,
                             ">[eth1:] # T4-T1=1000000200000-1000000000000 (200000) | "
                             "T3-T2=2000000100000-2000000000000 (100000)  | Round trip delay or "
                             "negative: 50000 is out of limits\n"));
}

TEST_F(PdelayRequest, ARejectionMakesTheNextDelayStandAlone) {
    PTPMsgPathDelayReq message(0, kPort);
    exchange(message, {1000000000000, 2000000000000, 2000000100000, 1000000100000});
    EXPECT_EQ(0, clockItemOf(kPortKey).measuredDelay);
    exchange(message, {1001000000000, 2001000000400, 2001000100400, 1001000100800});
    EXPECT_EQ(399, clockItemOf(kPortKey).measuredDelay);
    EXPECT_EQ(399, valueOf(record.linkDelay));
}

TEST_F(PdelayRequest, PublishesTheTimesOfTheExchange) {
    PTPMsgPathDelayReq message(0, kPort);
    exchange(message, {1000000000000, 5000000000500, 5000000100500, 1000000101000});
    EXPECT_EQ(5000000100500U, valueOf(record.pdelayT3));
    EXPECT_EQ(1700000000000000000U, valueOf(record.pdelayPhcTime));
    EXPECT_EQ(1700000037000000000U, valueOf(record.pdelaySystemTime));
    EXPECT_EQ(37000000000, valueOf(record.pdelayOffset));
    EXPECT_EQ(1.5L, loadExtended(record.pdelayRatio));
    EXPECT_EQ(0.0L, loadExtended(record.fitSlope));
    EXPECT_EQ(0, valueOf(record.fitEstimate));
    EXPECT_EQ(0U, valueOf(record.incompletePdelay));
}

TEST_F(PdelayRequest, FitsTheCorrectionsOfTheFollowUps) {
    PTPMsgPathDelayReq message(0, kPort);
    const long long corrections[] = {5000, 105000, 205000};
    for (int i = 0; i < 3; ++i) {
        const unsigned long long t1 = 1000000000ULL + 100000ULL * i;
        request(message, t1);
        respond(i + 1, 7000, t1 + 50000);
        std::vector<unsigned char> late = pdelayAnswer(10, i + 1, 56000);
        setField(late, 8, 8, static_cast<unsigned long long>(corrections[i]));
        platform().capabilities = {{}};
        printedBy([&] { handle(late); });
    }
    EXPECT_EQ(1.0L, loadExtended(record.fitSlope));
    EXPECT_EQ(1000250000 - 205000, valueOf(record.fitEstimate));
}

TEST_F(PdelayRequest, KeepsTheExchangeForTheNextRatioAndClearsIt) {
    PTPMsgPathDelayReq message(0, kPort);
    exchange(message, {1000000000000, 5000000000500, 5000000100500, 1000000101000});
    const ClockItemMembersType& item = clockItemOf(kPortKey);
    EXPECT_EQ(1000000000000U, valueOf(item.prev_t1.ns));
    EXPECT_EQ(5000000000500U, valueOf(item.prev_t2.ns));
    EXPECT_EQ(5000000100500U, valueOf(item.prev_t3.ns));
    EXPECT_EQ(1000000101000U, valueOf(item.prev_t4.ns));
    EXPECT_EQ(1000000000000U, valueOf(item.t1.ns));
    EXPECT_EQ(0U, valueOf(item.t2.ns));
    EXPECT_EQ(0U, valueOf(item.t4.ns));
}

}  // namespace
