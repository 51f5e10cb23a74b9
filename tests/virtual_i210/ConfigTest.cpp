#include "tools/virtual_i210/Config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>

namespace {

using testing::HasSubstr;
using virtual_i210::Config;
using virtual_i210::ConfigError;
using virtual_i210::parseConfig;

TEST(Config, ReadsAllSettings) {
    const Config config = parseConfig(
        "state=/dev/shm/cards seed=42 epoch_ns=1000;"
        "tsm0 phc=3 rate_ppb=-37000.5 offset_ns=-15 granularity_ns=1 cable_ns=500 jitter_ns=4 "
        "wander_ppb=0.25 read_ns=10 read_jitter_ns=20");
    EXPECT_EQ("/dev/shm/cards", config.statePath);
    EXPECT_EQ(42u, config.seed);
    EXPECT_EQ(1000u, config.epochNs);
    ASSERT_EQ(1u, config.cards.size());
    const auto& card = config.cards[0];
    EXPECT_EQ("tsm0", card.ifName);
    EXPECT_EQ(3, card.phcIndex);
    EXPECT_EQ(-37'000'500, card.ratePpt);
    EXPECT_EQ(-15, card.offsetNs);
    EXPECT_EQ(1u, card.granularityNs);
    EXPECT_EQ(500u, card.cableNs);
    EXPECT_EQ(4u, card.jitterNs);
    EXPECT_EQ(250, card.wanderPpt);
    EXPECT_EQ(10u, card.readNs);
    EXPECT_EQ(20u, card.readJitterNs);
}

TEST(Config, ReadsTheSettingsOfASimulatedRun) {
    const Config config = parseConfig(
        "clock=simulated capture=/tmp/run.pcapng load=30 cost_clock_ns=1 cost_call_ns=2 "
        "cost_wake_ns=3 cost_notify_ns=4 cost_wake_jitter_ns=5;"
        "a0 phc=0 net=left; b0 phc=0 net=right");
    EXPECT_TRUE(config.simulated);
    EXPECT_EQ("/tmp/run.pcapng", config.capturePath);
    EXPECT_EQ(30u, config.costs.loadPercent);
    EXPECT_EQ(1u, config.costs.clockNs);
    EXPECT_EQ(2u, config.costs.callNs);
    EXPECT_EQ(3u, config.costs.wakeNs);
    EXPECT_EQ(4u, config.costs.notifyNs);
    EXPECT_EQ(5u, config.costs.wakeJitterNs);
    ASSERT_EQ(2u, config.cards.size());
    EXPECT_EQ("left", config.cards[0].net);
    EXPECT_EQ(0, config.cards[1].phcIndex) << "the first of another machine";
}

TEST(Config, IsOfRealTimeUnlessTold) {
    EXPECT_FALSE(parseConfig("tsm0").simulated);
    EXPECT_FALSE(parseConfig("clock=real; tsm0").simulated);
    EXPECT_EQ("", parseConfig("tsm0").cards[0].net);
}

std::string textOfCards(unsigned count) {
    std::string text;
    for (unsigned i = 0; i < count; ++i) {
        text += "card" + std::to_string(i) + ";";
    }
    return text;
}

TEST(Config, TakesAsManyCardsAsAStateHolds) {
    const Config config = parseConfig(textOfCards(256));
    ASSERT_EQ(256u, config.cards.size());
    EXPECT_EQ("card255", config.cards[255].ifName);
    EXPECT_EQ(255, config.cards[255].phcIndex);
    EXPECT_THROW(parseConfig(textOfCards(257)), ConfigError);
}

TEST(Config, CountsClocksAndSkipsComments) {
    const Config config = parseConfig("# two cards; or three\ntsm0\n\n tss0 # the slave\n");
    ASSERT_EQ(2u, config.cards.size());
    EXPECT_EQ(0, config.cards[0].phcIndex);
    EXPECT_EQ(1, config.cards[1].phcIndex);
    EXPECT_EQ(8u, config.cards[1].granularityNs);
}

TEST(Config, ReadsAFile) {
    const std::string path = testing::TempDir() + "cards." + std::to_string(getpid());
    std::ofstream(path) << "seed=5\ntsm0 phc=7\n";
    const Config config = parseConfig(path);
    std::remove(path.c_str());
    EXPECT_EQ(5u, config.seed);
    ASSERT_EQ(1u, config.cards.size());
    EXPECT_EQ(7, config.cards[0].phcIndex);
}

TEST(Config, NamesAMissingFile) {
    try {
        parseConfig("./no-such-file");
        FAIL() << "accepted";
    } catch (const ConfigError& error) {
        EXPECT_THAT(error.what(), HasSubstr("cannot read './no-such-file'"));
    }
}

struct Malformed {
    const char* text;
    const char* told;
};

class MalformedConfig : public testing::TestWithParam<Malformed> {};

TEST(Config, RefusesAPathThatFitsNowhere) {
    EXPECT_THROW(parseConfig("clock=simulated capture=/" + std::string(255, 'x') + "; tsm0"),
                 ConfigError);
    EXPECT_EQ(255u, parseConfig("clock=simulated capture=/" + std::string(254, 'x') + "; tsm0")
                        .capturePath.size());
}

TEST_P(MalformedConfig, IsToldInOneLine) {
    try {
        parseConfig(GetParam().text);
        FAIL() << "accepted: " << GetParam().text;
    } catch (const ConfigError& error) {
        EXPECT_THAT(error.what(), HasSubstr(GetParam().told));
        EXPECT_EQ(std::string::npos, std::string(error.what()).find('\n'));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Config, MalformedConfig,
    testing::Values(Malformed{"", "no card"}, Malformed{"seed=1", "no card"},
                    Malformed{"tsm0 phc=x", "entry 1: 'phc=x': write a whole number from 0 to 999"},
                    Malformed{"tsm0; tss0 phc=1000", "entry 2: 'phc=1000'"},
                    Malformed{"tsm0 phc", "'phc': write name=value"},
                    Malformed{"tsm0 phc=", "write name=value"},
                    Malformed{"tsm0 phc=1 2", "'2': write name=value"},
                    Malformed{"tsm0 speed=1", "'speed=1': unknown setting; known are phc"},
                    Malformed{"sede=1; tsm0",
                              "entry 1: 'sede=1': unknown setting; known are state"},
                    Malformed{"seed=-1; tsm0", "'seed=-1'"},
                    Malformed{"state=x; tsm0", "begins with '/'"},
                    Malformed{"tsm0 rate_ppb=1.2345", "'rate_ppb=1.2345': write a number"},
                    Malformed{"tsm0 rate_ppb=1e3", "'rate_ppb=1e3'"},
                    Malformed{"tsm0 rate_ppb=100000001", "'rate_ppb=100000001'"},
                    Malformed{"tsm0 wander_ppb=-1", "'wander_ppb=-1'"},
                    Malformed{"tsm0 granularity_ns=0", "'granularity_ns=0'"},
                    Malformed{"tsm0 cable_ns=99999999999999999999", "'cable_ns=9999"},
                    Malformed{"tsm0;tsm0", "entry 2: 'tsm0': named twice"},
                    Malformed{"tsm0 phc=1;tss0", "entry 2: 'phc=1': taken by tsm0"},
                    Malformed{"clock=slow; tsm0", "write clock=real or clock=simulated"},
                    Malformed{"clock=simulated capture=x; tsm0", "begins with '/'"},
                    Malformed{"capture=/tmp/x; tsm0", "only for clock=simulated"},
                    Malformed{"load=101; tsm0", "'load=101': write a whole number from 0 to 100"},
                    Malformed{"cost_call_ns=-1; tsm0", "'cost_call_ns=-1'"},
                    Malformed{"cost_wake_ns=1000000001; tsm0", "'cost_wake_ns=1000000001'"},
                    Malformed{"averyveryverylongname", "at most 15 characters"}));

}  // namespace
