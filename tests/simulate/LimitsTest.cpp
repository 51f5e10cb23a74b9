#include "tools/simulate/Limits.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "tests/simulate/Scenarios.h"

namespace {

using simulate::Judgement;
using simulate::NodeResult;

simulate::StatusLine status(double atS, const char* fields) {
    simulate::Json json = simulate::Json::parse(fields);
    json["event"] = "status";
    return {atS, json};
}

/** A slave with ten samples, from second 1 to second 10, and three lines. */
std::vector<NodeResult> results() {
    NodeResult slave;
    slave.name = "slave";
    for (int i = 1; i <= 10; ++i) {
        slave.samples.push_back(
            {static_cast<double>(i), i % 2 == 0 ? -i * 100 : i * 100, 0, i > 1});
    }
    slave.lines = {
        status(5.0, R"({"state": "priming", "sync_accepted": 20, "link_delay_ns": 600})"),
        status(20.0, R"({"state": "synchronised", "sync_accepted": 150, "link_delay_ns": 510})"),
        status(40.0, R"({"state": "stale", "sync_accepted": 180, "link_delay_ns": 500})"),
        {60.5, simulate::Json{{"event", "end"}, {"sync_accepted", 181}, {"first_valid_s", 2.5}}}};
    slave.card = {{"card.rx_fallbacks", 3}};
    slave.log = "/nonexistent";
    return {NodeResult{"master", {}, {}, {}, {}, ""}, slave};
}

/** The judgements on the slave by a limit with these lines. */
std::vector<Judgement> judged(const std::string& lines, const std::vector<NodeResult>& results,
                              std::string* text = nullptr) {
    static simulate::Scenario scenario;
    scenario = readPairWith("[[limit]]\nnode = \"slave\"\n" + lines);
    auto judgements = simulate::judge(scenario, results);
    if (text != nullptr) {
        *text = simulate::describe(judgements.at(0));
    }
    return judgements;
}

TEST(ErrorLimits, LookAtValidSamplesInTheirWindow) {
    const auto all = judged("what = \"error\"\np50 = 600\ncount = 9\nmax = 999\n", results());
    ASSERT_EQ(all.size(), 3u);
    EXPECT_EQ(all[0].value, 600.0);
    EXPECT_TRUE(all[0].held);
    EXPECT_EQ(all[2].value, 9.0);
    EXPECT_EQ(all[1].value, 1000.0);
    EXPECT_EQ(all[1].atS, 10.0);
    EXPECT_FALSE(all[1].held);
    const auto some = judged("what = \"error\"\nfrom = 3\nto = 5\nmean = 100\n", results());
    EXPECT_EQ(some[0].value, (300.0 - 400.0 + 500.0) / 3.0);
    EXPECT_FALSE(some[0].held);
}

TEST(ErrorLimits, ThatAreBrokenSayWhenAndWhatIsAllowed) {
    std::string text;
    judged("what = \"error\"\nmax = { min = 1, max = 999 }\n", results(), &text);
    EXPECT_EQ(text, "slave error max: 1000 ns at 10 s, 1 to 999 ns is allowed");
    judged("what = \"error\"\nfrom = 50\np99 = 5\n", results(), &text);
    EXPECT_EQ(text, "slave error p99: nothing to judge, at most 5 ns is allowed");
}

TEST(Limits, WithNothingToJudgeAreBroken) {
    EXPECT_FALSE(judged("what = \"error\"\nfrom = 50\np99 = 5\n", results())[0].held);
    EXPECT_FALSE(judged("what = \"counter\"\ncounter = \"x\"\nvalue = 5\n", results())[0].held);
    EXPECT_FALSE(judged("what = \"log\"\nmatches = \"x\"\nlines = 5\n", results())[0].held);
    EXPECT_FALSE(judged("what = \"state\"\nis = \"stale\"\nto = 4\n", results())[0].held);
}

TEST(DelayLimits, LookAtTheLinesOfATsyn) {
    const auto found = judged("what = \"delay\"\nfrom = 10\nmax = 510\n", results());
    EXPECT_EQ(found[0].value, 510.0);
    EXPECT_TRUE(found[0].held);
}

TEST(RecoveryLimits, CountFromTheEndOfTheirEvent) {
    const std::string event = R"(below_ns = 700
hold = 2
what = "recovery"
after = "e"
within = { min = 1, max = 2 }
[[event]]
name = "e"
at = 4
card = "slave"
link = "down"
for = 1
)";
    std::vector<NodeResult> some = results();
    EXPECT_FALSE(judged(event, some)[0].value.has_value() && judged(event, some)[0].held);
    some[1].samples[4].errorNs = 5000;
    std::string text;
    const auto found = judged(event, some, &text);
    EXPECT_EQ(found[0].value, std::nullopt) << "errors grow above 700 ns too soon";
    EXPECT_EQ(text, "slave recovery within: never, 1 to 2 s is allowed");
    for (auto& sample : some[1].samples) {
        sample.errorNs = sample.atS > 5.5 ? 10 : 5000;
    }
    EXPECT_EQ(judged(event, some)[0].value, 1.0);
    EXPECT_TRUE(judged(event, some)[0].held);
}

TEST(CounterLimits, TellTheGrowthInTheirWindow) {
    const std::string counter = "what = \"counter\"\ncounter = \"sync_accepted\"\nvalue = 1000\n";
    EXPECT_EQ(judged(counter, results())[0].value, 181.0);
    EXPECT_EQ(judged(counter + "to = 45\n", results())[0].value, 180.0);
    EXPECT_EQ(judged(counter + "from = 20\nto = 45\n", results())[0].value, 160.0);
    EXPECT_EQ(judged(counter + "from = 21\n", results())[0].value, 31.0);
}

TEST(CounterLimits, TakeNumbersOfTheClosingLineAndOfTheCard) {
    const auto valid =
        judged("what = \"counter\"\ncounter = \"first_valid_s\"\nvalue = 3\n", results());
    EXPECT_EQ(valid[0].value, 2.5);
    std::string text;
    judged("what = \"counter\"\ncounter = \"card.rx_fallbacks\"\nvalue = 0\n", results(), &text);
    EXPECT_EQ(text, "slave counter 'card.rx_fallbacks': 3, at most 0 is allowed");
}

TEST(StateLimits, LookAtTheLastLineOfTheirWindow) {
    EXPECT_TRUE(judged("what = \"state\"\nis = \"synchronised\"\nto = 30\n", results())[0].held);
    std::string text;
    const auto found = judged("what = \"state\"\nis = \"synchronised\"\n", results(), &text);
    EXPECT_FALSE(found[0].held);
    EXPECT_EQ(text, "slave state: is another, 'synchronised' is allowed");
}

TEST(LogLimits, CountTheLinesThatMatch) {
    std::string file = "/tmp/simulate_test_XXXXXX";
    close(mkstemp(file.data()));
    std::ofstream(file) << "an ERROR\nall right\nERROR: ERROR\nerror\n";
    auto some = results();
    some[1].log = file;
    const auto found = judged("what = \"log\"\nmatches = \"^E|ERR.R$\"\nlines = 2\n", some);
    EXPECT_EQ(found[0].value, 2.0);
    EXPECT_TRUE(found[0].held);
    unlink(file.c_str());
}

}  // namespace
