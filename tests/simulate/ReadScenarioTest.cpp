#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/simulate/Scenarios.h"

namespace {

using simulate::Action;
using simulate::Measure;
using simulate::Scenario;
using simulate::Settings;

constexpr std::uint64_t kSecond = 1'000'000'000;

TEST(AScenario, HasItsNameFromItsFileAndDefaults) {
    const Scenario scenario = readPairWith("");
    EXPECT_EQ(scenario.name, "pair");
    EXPECT_EQ(scenario.durationNs, 60 * kSecond);
    EXPECT_EQ(scenario.seed, 3u);
    EXPECT_EQ(scenario.epochNs, 1'767'225'600 * kSecond);
    EXPECT_TRUE(scenario.machine.empty());
    ASSERT_EQ(scenario.nodes.size(), 2u);
    EXPECT_EQ(scenario.nodes[0].program, "tsyn");
    EXPECT_EQ(scenario.nodes[0].startNs, 0u);
    EXPECT_FALSE(scenario.nodes[0].i386);
    EXPECT_EQ(scenario.nodes[1].phcIndex, 1);
    EXPECT_EQ(scenario.nodes[1].sampleRateHz, 100.0);
    ASSERT_EQ(scenario.nets.size(), 1u);
    EXPECT_EQ(scenario.nets[0].name, "link1");
}

TEST(AScenario, TakesItsEpochInThreeForms) {
    for (const char* epoch :
         {"2038-01-19T03:14:00Z", "\"2038-01-19T03:14:00Z\"", "2147483640000000000"}) {
        const std::string text = std::string("epoch = ") + epoch + "\n" + kPairText;
        EXPECT_EQ(simulate::parseScenario(text, "x.toml").epochNs, 2'147'483'640 * kSecond)
            << epoch;
    }
}

TEST(AScenario, GivesItsTsynsAProfileUnlessTheyNameOne) {
    const Scenario scenario = simulate::parseScenario(
        "profile = \"standard\"\n" + pairWith("[[node]]\nname = \"t\"\nrole = \"slave\"\n"
                                              "profile = \"deployed\"\n"
                                              "[[bridge]]\nnodes = [\"t\"]\n"),
        "x.toml");
    EXPECT_EQ(scenario.find("master")->profile, "standard");
    EXPECT_EQ(scenario.find("t")->profile, "deployed");
}

/** A folder with two scenarios, one of them the pair. */
class LikeAnother : public testing::Test {
protected:
    LikeAnother() : folder_(testing::TempDir() + "like-" + std::to_string(getpid())) {
        std::filesystem::create_directory(folder_);
        write("pair.toml", pairWith("[[limit]]\nnode = \"slave\"\nwhat = \"error\"\np50 = 1\n"));
    }
    ~LikeAnother() override { std::filesystem::remove_all(folder_); }

    std::string write(const std::string& name, const std::string& text) {
        std::ofstream(folder_ + "/" + name) << text;
        return folder_ + "/" + name;
    }
    std::string mistakesOf(const std::string& file) {
        try {
            simulate::readScenario(file);
            return "";
        } catch (const simulate::ScenarioError& error) {
            return std::string(error.what()).substr(folder_.size() + 1);
        }
    }

private:
    std::string folder_;
};

TEST_F(LikeAnother, TakesOverAllButNameAndLimits) {
    const Scenario scenario = simulate::readScenario(
        write("other.toml", "like = \"pair.toml\"\nduration = \"9s\"\nprofile = \"standard\"\n"));
    EXPECT_EQ(scenario.name, "other");
    EXPECT_EQ(scenario.durationNs, 9 * kSecond);
    EXPECT_EQ(scenario.seed, 3u);
    ASSERT_EQ(scenario.nodes.size(), 2u);
    EXPECT_EQ(scenario.nodes[1].profile, "standard");
    EXPECT_EQ(scenario.nets.size(), 1u);
    EXPECT_TRUE(scenario.limits.empty());
}

TEST_F(LikeAnother, TellsOfAFileThatIsMissingOrLikeAnotherItself) {
    const std::string other = write("other.toml", "like = \"none.toml\"\n");
    EXPECT_EQ(mistakesOf(other),
              "none.toml:1: cannot be read (No such file or directory); name a "
              "scenario's TOML file");
    EXPECT_EQ(mistakesOf(write("third.toml", "like = \"third.toml\"\n")),
              "third.toml:1: like: is itself like another; name that one");
}

TEST(AMachine, HasItsSettingsAsTheCardWritesThem) {
    const Scenario scenario = readPairWith("[machine]\nload = 30\ncost_wake_ns = 4000\n");
    EXPECT_EQ(scenario.machine, (Settings{{"load", "30"}, {"cost_wake_ns", "4000"}}));
}

TEST(ANode, HasItsCardAsTheCardWritesIt) {
    const Scenario scenario = readPairWith("");
    EXPECT_EQ(scenario.nodes[1].card, (Settings{{"rate_ppb", "37000.000"}}));
    EXPECT_EQ(scenario.nodes[1].ratePpb, 37000.0);
}

constexpr const char* kThreeSlaves = R"(duration = 10
[[node]]
name = "master"
role = "master"
[[node]]
name = "slave"
count = 3
role = "slave"
abi = "i386"
start = "1s"
stagger = "10ms"
truth = "master"
rate_ppb = { from = -100, to = 100 }
cable_ns = { from = 100, to = 501 }
read_ns = 0
[[bridge]]
nodes = "*"
)";

TEST(ACount, MakesNodesThatDifferWhereTheyAreSpread) {
    const Scenario scenario = simulate::parseScenario(kThreeSlaves, "x.toml");
    ASSERT_EQ(scenario.nodes.size(), 4u);
    EXPECT_EQ(scenario.nodes[1].name, "slave1");
    EXPECT_EQ(scenario.nodes[3].name, "slave3");
    EXPECT_EQ(scenario.nodes[3].cardName, "slave3");
    EXPECT_EQ(scenario.nodes[3].phcIndex, 3);
    EXPECT_EQ(scenario.nodes[2].startNs, kSecond + 10'000'000);
    EXPECT_TRUE(scenario.nodes[2].i386);
    EXPECT_EQ(scenario.nodes[1].card,
              (Settings{{"rate_ppb", "-100.000"}, {"cable_ns", "100"}, {"read_ns", "0"}}));
    EXPECT_EQ(scenario.nodes[2].card,
              (Settings{{"rate_ppb", "0.000"}, {"cable_ns", "301"}, {"read_ns", "0"}}));
    EXPECT_EQ(scenario.nodes[3].ratePpb, 100.0);
}

TEST(ACount, IsNamedAsAWhole) {
    const Scenario scenario = simulate::parseScenario(kThreeSlaves, "x.toml");
    EXPECT_EQ(scenario.nets[0].nodes,
              (std::vector<std::string>{"master", "slave1", "slave2", "slave3"}));
    const std::string more = R"([[limit]]
node = ["slave", "master"]
what = "log"
matches = "x"
lines = 0
)";
    const Scenario limited = simulate::parseScenario(kThreeSlaves + more, "x.toml");
    EXPECT_EQ(limited.limits[0].nodes,
              (std::vector<std::string>{"slave1", "slave2", "slave3", "master"}));
}

TEST(ANode, MayRunOnTheCardOfAnotherAndStartLater) {
    const Scenario scenario = readPairWith(R"([[node]]
name = "tool"
program = "phc_ctl"
card_of = "slave"
start = "never"
may_end = true
environment = { A = "b" }
options = ["{phc}", "get"]
)");
    const simulate::Node& tool = *scenario.find("tool");
    EXPECT_EQ(tool.cardName, "slave");
    EXPECT_FALSE(tool.ownsCard());
    EXPECT_EQ(tool.phcIndex, 1);
    EXPECT_EQ(tool.startNs, std::nullopt);
    EXPECT_TRUE(tool.mayEnd);
    EXPECT_EQ(tool.environment, (Settings{{"A", "b"}}));
}

TEST(AnEvent, OrdersAFaultOfACertainMessage) {
    const Scenario scenario = readPairWith(R"([[event]]
at = "12s"
card = "master"
fault = "corrupt"
type = "Follow_Up"
count = 5
byte = 20
bit = 3
)");
    const simulate::Event& event = scenario.events.at(0);
    EXPECT_EQ(event.action, Action::kFault);
    EXPECT_EQ(event.fault.fault, virtual_i210::Fault::kFrameCorrupted);
    EXPECT_EQ(event.fault.messageType, 8u);
    EXPECT_EQ(event.fault.count, 5u);
    EXPECT_EQ(event.fault.byte, 20u);
    EXPECT_EQ(event.fault.bit, 3u);
    EXPECT_EQ(event.endNs(), 12 * kSecond);
}

TEST(AnEvent, ThatIsTakenBackLastsUntilThen) {
    const Scenario scenario = readPairWith(R"([[event]]
name = "late"
at = "12s"
card = "master"
fault = "stamp-late"
late_ns = 125000000
for = "2s"
every = "5s"
times = 3
[[limit]]
node = "slave"
what = "recovery"
after = "late"
below_ns = 1000
within = "500ms"
)");
    const simulate::Event& event = scenario.events.at(0);
    EXPECT_EQ(event.fault.count, virtual_i210::kUntilCleared);
    EXPECT_EQ(event.fault.messageType, virtual_i210::kAnyMessageType);
    EXPECT_EQ(event.fault.lateNs, 125'000'000u);
    EXPECT_EQ(event.endNs(), 24 * kSecond);
    const simulate::Limit& limit = scenario.limits.at(0);
    EXPECT_EQ(limit.measure, Measure::kRecovery);
    EXPECT_EQ(limit.fromNs, 24 * kSecond);
    EXPECT_EQ(limit.toNs, 60 * kSecond);
    EXPECT_EQ(limit.holdNs, kSecond);
    EXPECT_EQ(limit.bounds.at(0).second.max, 0.5);
}

TEST(ALimit, BoundsOneSideOrBoth) {
    const Scenario scenario = readPairWith(R"([[limit]]
node = "slave"
what = "error"
from = 10
to = "50s"
p50 = { min = 60, max = 140.5 }
p99 = 300
count = { min = 1 }
)");
    const simulate::Limit& limit = scenario.limits.at(0);
    EXPECT_EQ(limit.fromNs, 10 * kSecond);
    EXPECT_EQ(limit.toNs, 50 * kSecond);
    ASSERT_EQ(limit.bounds.size(), 3u);
    EXPECT_TRUE(limit.bounds[0].second.holds(60.0));
    EXPECT_TRUE(limit.bounds[0].second.holds(140.5));
    EXPECT_FALSE(limit.bounds[0].second.holds(59.9));
    EXPECT_FALSE(limit.bounds[0].second.holds(140.6));
    EXPECT_TRUE(limit.bounds[1].second.holds(-5.0));
    EXPECT_FALSE(limit.bounds[1].second.holds(300.1));
    EXPECT_TRUE(limit.bounds[2].second.holds(1e9));
}

}  // namespace
