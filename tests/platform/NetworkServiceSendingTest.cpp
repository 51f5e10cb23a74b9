#include <gtest/gtest.h>
#include <net/if.h>

#include <cerrno>
#include <cstddef>

#include "tests/platform/ServiceOnCard.h"
#include "tests/support/Hex.h"
#include "tests/support/Vectors.h"

namespace {

using Texts = std::vector<std::string>;
using Clock = std::chrono::steady_clock;

TEST(NetworkServiceSending, UntaggedFramesHaveAFourteenByteHeader) {
    ServiceOnCard card(-1);
    EXPECT_EQ(19, card.send(kPayload));
    ASSERT_EQ(1U, card.sent.size());
    EXPECT_EQ(framed("0180c200000e02000000000188f7", kPayload), card.sent[0]);
}

TEST(NetworkServiceSending, FramesNameTheGivenAddressButGoToTheGptpOne) {
    ServiceOnCard card;
    card.send(kPayload, "0a0b0c0d0e0f");
    EXPECT_EQ(framed("0a0b0c0d0e0f02000000000188f7", kPayload), card.sent.at(0));
    EXPECT_EQ(static_cast<int>(if_nametoindex("tsm0")), card.link.sll_ifindex);
    EXPECT_EQ(6, card.link.sll_halen);
    EXPECT_EQ("0180c200000e", toHex(card.link.sll_addr, 6));
}

TEST(NetworkServiceSending, PassesNoFlagsOn) {
    ServiceOnCard card;
    card.send(kPayload);
    EXPECT_EQ(0, card.sendFlags);
}

TEST(NetworkServiceSending, ReadsNoMoreOfTheDestinationThanItsLength) {
    constexpr unsigned int kUpToTheAddress = offsetof(sockaddr_ll, sll_addr);
    const struct {
        unsigned int length;
        const char* destination;
    } cases[] = {{kUpToTheAddress, "000000000000"},
                 {kUpToTheAddress + 3, "0a0b0c000000"},
                 {sizeof(sockaddr_ll), "0a0b0c0d0e0f"},
                 {0, "0a0b0c0d0e0f"},
                 {0xFFFFFFFF, "0a0b0c0d0e0f"}};
    ServiceOnCard card;
    for (const auto& one : cases) {
        card.send(kPayload, "0a0b0c0d0e0f", one.length);
        EXPECT_EQ(one.destination, toHex(card.sent.back().data(), 6)) << one.length;
    }
}

class TagOf : public testing::TestWithParam<std::size_t> {};

TEST_P(TagOf, VlanIdAndPriorityIsNotMasked) {
    const auto& vector = vectors("tci")[GetParam()];
    ServiceOnCard card(vector["VlanID"].get<int>(), vector["VlanPrio"].get<unsigned>());
    EXPECT_EQ(23, card.send(kPayload));
    EXPECT_EQ(
        framed("0180c200000e020000000001" + vector["tag"].get<std::string>() + "88f7", kPayload),
        card.sent.at(0));
}

INSTANTIATE_TEST_SUITE_P(NetworkServiceSending, TagOf,
                         testing::Range<std::size_t>(0, vectors("tci").size()));

TEST(NetworkServiceSending, ReadsThePhcBeforeEverySend) {
    ServiceOnCard card;
    Texts calls;
    card.kernel.clockGettime = [&](clockid_t id, timespec*) -> std::optional<int> {
        if (id < 0) {
            calls.push_back("phc");
        }
        return std::nullopt;
    };
    card.kernel.sendto = [&](int, const void*, std::size_t size, int, const sockaddr*) {
        calls.push_back("send");
        return static_cast<ssize_t>(size);
    };
    card.send(kPayload);
    card.send(kPayload);
    EXPECT_EQ((Texts{"phc", "send", "phc", "send"}), calls);
}

TEST(NetworkServiceSending, ReadsThePhcBeforeEverySendWhichOpensItForCrossTimestamps) {
    ServiceOnCard card;
    unsigned long long systemNs = 0;
    unsigned long long phcNs = 0;
    i210helper::e1000_ptp_get_ext_time("tsm0", &systemNs, &phcNs);
    EXPECT_EQ(0ULL, phcNs);
    card.send(kPayload);
    i210helper::e1000_ptp_get_ext_time("tsm0", &systemNs, &phcNs);
    EXPECT_NE(0ULL, phcNs);
}

/** Errors of successive sends; 0 lets one succeed. */
struct RefusedSends {
    RefusedSends(ServiceOnCard& card, const std::vector<int>& errors) {
        card.kernel.sendto = [this, errors](int, const void*, std::size_t size, int,
                                            const sockaddr*) -> std::optional<ssize_t> {
            when.push_back(Clock::now());
            const int error = errors.at(when.size() - 1);
            return error != 0 ? KernelSeam::refuse(error) : static_cast<ssize_t>(size);
        };
    }

    std::vector<Clock::time_point> when;
};

TEST(NetworkServiceSending, AFullQueueIsTriedThreeTimes) {
    ServiceOnCard card;
    const RefusedSends sends(card, {ENOMSG, ENOMSG, ENOMSG});
    EXPECT_EQ(-1, card.send(kPayload));
    ASSERT_EQ(3U, sends.when.size());
    EXPECT_GE(sends.when[1] - sends.when[0], std::chrono::microseconds(150));
    EXPECT_GE(sends.when[2] - sends.when[1], std::chrono::microseconds(450));
}

TEST(NetworkServiceSending, ASecondTryThatSucceedsEndsIt) {
    ServiceOnCard card;
    const RefusedSends sends(card, {ENOMSG, 0});
    EXPECT_EQ(19, card.send(kPayload));
    EXPECT_EQ(2U, sends.when.size());
}

TEST(NetworkServiceSending, ASecondTryThatSendsNothingIsNotRefused) {
    ServiceOnCard card;
    int tries = 0;
    card.kernel.sendto = [&](int, const void*, std::size_t, int, const sockaddr*) -> ssize_t {
        return ++tries == 1 ? KernelSeam::refuse(ENOMSG) : 0;
    };
    EXPECT_EQ(0, card.send(kPayload));
    EXPECT_EQ(2, tries);
}

TEST(NetworkServiceSending, AThirdTryFollowsWhateverTheSecondErrorIs) {
    ServiceOnCard card;
    const RefusedSends sends(card, {ENOMSG, ENETDOWN, 0});
    EXPECT_EQ(19, card.send(kPayload));
    EXPECT_EQ(3U, sends.when.size());
}

TEST(NetworkServiceSending, OtherErrorsAreNotRetried) {
    ServiceOnCard card;
    const RefusedSends sends(card, {ENETDOWN});
    EXPECT_EQ(-1, card.send(kPayload));
    EXPECT_EQ(1U, sends.when.size());
}

TEST(NetworkServiceSending, PayloadsBeyondTheBufferAreRefused) {
    ServiceOnCard card;
    EXPECT_EQ(2048 + 14, card.send(Bytes(2048)));
    EXPECT_EQ(-1, card.send(Bytes(2049)));
    EXPECT_EQ(EMSGSIZE, errno);
    EXPECT_EQ(1U, card.sent.size());
}

TEST(NetworkServiceSending, AnEmptyPayloadIsAHeaderAlone) {
    ServiceOnCard card;
    EXPECT_EQ(14, card.send({}));
    EXPECT_EQ("0180c200000e02000000000188f7", toHex(card.sent.at(0)));
}

TEST(NetworkServiceSending, TransmitOfNoLengthSendsAHeaderAlone) {
    ServiceOnCard card;
    card.kernel.recvmsg = [](int, msghdr*, int) { return 0; };
    ptp_time_t time{};
    for (const int length : {0, -1}) {
        card.service->transmit(kPayload.data(), length, &time);
        EXPECT_EQ(14U, card.sent.back().size());
    }
}

TEST(NetworkServiceSending, TransmitReturnsZeroEvenWhenTheSendFailed) {
    ServiceOnCard card;
    const RefusedSends sends(card, {ENETDOWN});
    card.kernel.recvmsg = [](int, msghdr*, int) { return KernelSeam::refuse(EAGAIN); };
    ptp_time_t time{5, 5};
    EXPECT_EQ(0, card.service->transmit(kPayload.data(), 5, &time));
    EXPECT_EQ(0ULL, time.seconds);
    EXPECT_EQ("Timestamp still missing!", card.output.texts().back());
}

}  // namespace
