#include "profile/Answers.h"

#include <gtest/gtest.h>

#include "profile/RobustDelay.h"
#include "ptp/ProtocolSteps.h"
#include "tests/profile/Profiled.h"
#include "tests/support/StdoutCapture.h"

namespace {

using std::chrono::milliseconds;

constexpr unsigned char kStranger = 0xBB;
constexpr unsigned char kResp = 3;
constexpr unsigned char kRespFollowUp = 10;

class Answers : public testing::Test {
protected:
    Answers() { setProfile(deployedWith({{"soleAnswer", 1}, {"robustDelay", 1}})); }

    static void request(unsigned int sequenceId) {
        Bytes message = messageOf(2, 54, kOwn, sequenceId);
        protocolSteps.finish(message.data());
    }

    static bool responds(unsigned char responder, unsigned int sequenceId) {
        return isAdmitted(answerTo(kOwn, kResp, responder, sequenceId));
    }

    static bool follows(unsigned char responder, unsigned int sequenceId) {
        return isAdmitted(answerTo(kOwn, kRespFollowUp, responder, sequenceId));
    }

    static bool severalAnswer() { return (qualityNow().flags & TSYN_FLAG_SEVERAL_ANSWERS) != 0; }

    StdoutCapture output_;
};

TEST_F(Answers, OfOnePortAreTaken) {
    request(1);
    EXPECT_TRUE(responds(kPeer, 1));
    EXPECT_TRUE(follows(kPeer, 1));
    EXPECT_FALSE(answers::exchangeIsDisputed(1));
    EXPECT_FALSE(severalAnswer());
}

TEST_F(Answers, ToRequestsOfOthersAreNotHandled) {
    EXPECT_FALSE(isAdmitted(answerTo(kOwn, kResp, kPeer, 1))) << "nothing was requested";
    request(1);
    EXPECT_FALSE(isAdmitted(answerTo(kStranger, kResp, kPeer, 1)));
    EXPECT_FALSE(isAdmitted(answerTo(kStranger, kRespFollowUp, kPeer, 1)));
    EXPECT_EQ(0U, qualityNow().unusedExchanges);
    EXPECT_TRUE(responds(kPeer, 1));
}

TEST_F(Answers, OfASecondPortEndTheExchange) {
    request(1);
    EXPECT_TRUE(responds(kPeer, 1));
    EXPECT_FALSE(responds(kStranger, 1));
    EXPECT_FALSE(follows(kStranger, 1));
    EXPECT_FALSE(follows(kPeer, 1));
    EXPECT_TRUE(answers::exchangeIsDisputed(1));
    EXPECT_TRUE(severalAnswer());
    EXPECT_EQ(1U, qualityNow().unusedExchanges) << "an exchange counts once";
    EXPECT_EQ(1, output_.count("Several ports answer a Pdelay_Req, such as bbbbbbbbbbbbbbbb: no "
                               "delay is used\n"));
}

TEST_F(Answers, OfASecondPortTakeTheDelayBackAndCountItOnce) {
    Port port{nullptr, nullptr, TimeRecord(nullptr)};
    ClockItemMembersType item;
    item.pdelaySeqNo = 1;
    request(1);
    responds(kPeer, 1);
    const Bytes last = answerTo(kOwn, kRespFollowUp, kPeer, 1);
    EXPECT_TRUE(isAdmitted(last));
    robust_delay::useExchange(port, last.data(), {1000, 5500, 6500, 3000}, item);
    EXPECT_FALSE(responds(kStranger, 1));
    robust_delay::settle(port.record, 3000 + 1000000000);
    EXPECT_FALSE(robust_delay::isKnown());
    EXPECT_EQ(1U, qualityNow().unusedExchanges);
}

TEST_F(Answers, OfASecondPortAfterTheExchangeDisputeItStill) {
    request(1);
    responds(kPeer, 1);
    EXPECT_TRUE(follows(kPeer, 1));
    EXPECT_FALSE(answers::exchangeIsDisputed(1));
    EXPECT_FALSE(responds(kStranger, 1));
    EXPECT_TRUE(answers::exchangeIsDisputed(1));
    EXPECT_EQ(1U, qualityNow().unusedExchanges);
}

TEST_F(Answers, OfASecondPortAfterTheNextRequestDisputeTheirOwnExchange) {
    request(1);
    responds(kPeer, 1);
    request(2);
    EXPECT_FALSE(responds(kStranger, 1));
    EXPECT_TRUE(answers::exchangeIsDisputed(1));
    EXPECT_TRUE(severalAnswer());
}

TEST_F(Answers, AreTakenAgainAfterThreeExchangesWithOne) {
    request(1);
    responds(kPeer, 1);
    responds(kStranger, 1);
    for (unsigned int sequenceId = 2; sequenceId <= 4; ++sequenceId) {
        request(sequenceId);
        EXPECT_TRUE(responds(kPeer, sequenceId));
        EXPECT_FALSE(follows(kPeer, sequenceId)) << sequenceId;
        EXPECT_TRUE(severalAnswer());
    }
    request(5);
    EXPECT_FALSE(severalAnswer());
    responds(kPeer, 5);
    EXPECT_TRUE(follows(kPeer, 5));
    EXPECT_EQ(1U, qualityNow().unusedExchanges);
}

TEST_F(Answers, ThatComeTwiceAreTakenOnce) {
    request(1);
    EXPECT_TRUE(responds(kPeer, 1));
    EXPECT_FALSE(responds(kPeer, 1));
    EXPECT_TRUE(follows(kPeer, 1));
    EXPECT_FALSE(follows(kPeer, 1));
    EXPECT_FALSE(severalAnswer());
}

TEST_F(Answers, ToAnEarlierRequestAreTooLate) {
    request(1);
    responds(kPeer, 1);
    request(2);
    EXPECT_FALSE(follows(kPeer, 1));
    EXPECT_FALSE(follows(kPeer, 2)) << "its response is missing";
    EXPECT_FALSE(responds(kPeer, 9));
    EXPECT_TRUE(responds(kPeer, 2));
}

TEST_F(Answers, AreUsedFromTheSecondExchangeOnWhereADelayIsUsedAtOnce) {
    setProfile(deployedWith({{"soleAnswer", 1}}));
    request(1);
    EXPECT_TRUE(responds(kPeer, 1));
    EXPECT_FALSE(follows(kPeer, 1));
    request(2);
    responds(kPeer, 2);
    EXPECT_TRUE(follows(kPeer, 2));
}

class RequestsOfPeers : public testing::Test {
protected:
    RequestsOfPeers() { setProfile(deployedWith({{"answersPerSecond", 2}})); }

    static bool isAnswered(unsigned char peer) { return isAdmitted(messageOf(2, 54, peer)); }

    TimeSandbox sandbox_;
};

TEST_F(RequestsOfPeers, AreAnsweredUpToTheirRate) {
    EXPECT_TRUE(isAnswered(kPeer));
    EXPECT_TRUE(isAnswered(kPeer));
    EXPECT_FALSE(isAnswered(kPeer));
    EXPECT_TRUE(isAnswered(kStranger)) << "each peer has its own rate";
    pass(milliseconds(990));
    EXPECT_FALSE(isAnswered(kPeer));
    pass(milliseconds(20));
    EXPECT_TRUE(isAnswered(kPeer));
}

/** Requests of peers nobody heard of before, from the ninth on. */
int answersToStrangers(int count) {
    int answers = 0;
    for (int peer = 20; peer < 20 + count; ++peer) {
        answers += isAdmitted(messageOf(2, 54, static_cast<unsigned char>(peer))) ? 1 : 0;
    }
    return answers;
}

TEST_F(RequestsOfPeers, OfMoreThanAreKnownShareABudget) {
    for (unsigned char peer = 1; peer <= 8; ++peer) {
        EXPECT_TRUE(isAnswered(peer)) << static_cast<int>(peer);
    }
    EXPECT_EQ(64, answersToStrangers(100));
    EXPECT_TRUE(isAnswered(1)) << "who was there before the flood is served on";
    pass(milliseconds(1010));
    EXPECT_EQ(64, answersToStrangers(100));
}

TEST_F(RequestsOfPeers, HaveTheirPlaceUntilTheyWereSilentForLong) {
    for (unsigned char peer = 1; peer <= 8; ++peer) {
        isAnswered(peer);
    }
    pass(milliseconds(19000));
    EXPECT_TRUE(isAnswered(1));
    answersToStrangers(100);
    EXPECT_FALSE(isAnswered(kStranger));
    pass(milliseconds(2000));
    EXPECT_TRUE(isAnswered(kStranger));
    answersToStrangers(100);
    EXPECT_TRUE(isAnswered(kStranger)) << "it has the place of one that left";
    EXPECT_TRUE(isAnswered(1));
}

TEST_F(RequestsOfPeers, OfWhoAnswersUsAreAnsweredInAFlood) {
    setProfile(deployedWith({{"answersPerSecond", 2}, {"soleAnswer", 1}}));
    Bytes own = messageOf(2, 54, kOwn);
    protocolSteps.finish(own.data());
    EXPECT_TRUE(isAdmitted(answerTo(kOwn, kResp, kPeer, 1)));
    answersToStrangers(100);
    EXPECT_TRUE(isAnswered(kPeer));
    EXPECT_TRUE(isAnswered(kPeer));
    EXPECT_FALSE(isAnswered(kPeer)) << "a flood in its name has a bound, too";
}

TEST_F(RequestsOfPeers, OfTheMasterBelievedAreAnsweredInAFlood) {
    configure(slaveConfig());
    setProfile(deployedWith({{"answersPerSecond", 2}, {"oneMaster", 1}}));
    EXPECT_TRUE(isAdmitted(messageOf(0, 44, kPeer)));
    answersToStrangers(100);
    EXPECT_TRUE(isAnswered(kPeer));
}

}  // namespace
