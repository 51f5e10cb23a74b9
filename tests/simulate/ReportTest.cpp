#include "tools/simulate/Report.h"

#include <gtest/gtest.h>

#include "tests/simulate/Scenarios.h"
#include "tools/simulate/Picture.h"

namespace {

using simulate::RunRecord;

/** A run of the pair whose slave errs by 100 ns and then by -250 ns. */
RunRecord recordOf(const simulate::Scenario& scenario) {
    RunRecord record;
    record.scenario = &scenario;
    record.seed = 5;
    simulate::NodeResult master;
    master.name = "master";
    master.startsS = {0.0};
    simulate::NodeResult slave;
    slave.name = "slave";
    slave.startsS = {0.0, 12.5};
    slave.samples = {
        {10.0, 100, 3, true}, {10.5, 7, 3, false}, {11.0, -250, 3, true}, {60.5, 9999, 3, true}};
    slave.lines = {{1.0, {{"event", "status"}, {"t_s", 1.0}}}};
    slave.card = {{"card.tx_timestamps", 12}};
    record.results = {master, slave};
    record.judgements = simulate::judge(scenario, record.results);
    return record;
}

constexpr const char* kLimited = R"([[limit]]
node = "slave"
what = "error"
max = 200
mean = { min = -76 }
[[event]]
name = "pulled"
at = 20
card = "slave"
link = "down"
for = 1.5
)";

constexpr const char* kReport = R"({
  "scenario": "pair",
  "file": "pair.toml",
  "seed": 5,
  "duration_s": 60,
  "epoch_ns": 1767225600000000000,
  "verdict": "broken",
  "failures": [],
  "nodes": {
    "master": {
      "program": "tsyn",
      "role": "master",
      "abi": "x86_64",
      "starts_s": [
        0
      ],
      "last_line": null
    },
    "slave": {
      "program": "tsyn",
      "role": "slave",
      "abi": "x86_64",
      "starts_s": [
        0,
        12.5
      ],
      "truth": "master",
      "error_ns": {
        "count": 2,
        "p50": 100,
        "p99": 250,
        "max": 250,
        "max_at_s": 11,
        "rms": 190.394,
        "mean": -75
      },
      "last_line": {
        "event": "status",
        "t_s": 1.0
      },
      "card": {
        "tx_timestamps": 12
      }
    }
  },
  "events": [
    {
      "line": 22,
      "name": "pulled",
      "nodes": [
        "slave"
      ],
      "what": "link down",
      "at_s": 20,
      "for_s": 1.5
    }
  ],
  "limits": [
    {
      "line": 17,
      "node": "slave",
      "what": "error",
      "bound": "max",
      "value": 250,
      "at_s": 11,
      "min": null,
      "max": 200,
      "held": false
    },
    {
      "line": 17,
      "node": "slave",
      "what": "error",
      "bound": "mean",
      "value": -75,
      "min": -76,
      "max": null,
      "held": true
    }
  ]
})";

TEST(AReport, HasNothingInItThatDiffersFromRunToRun) {
    const auto scenario = readPairWith(kLimited);
    EXPECT_EQ(simulate::reportOf(recordOf(scenario)).dump(2), kReport);
}

TEST(ASummary, TellsWhatBroke) {
    const auto scenario = readPairWith(kLimited);
    const auto summary = simulate::summaryFrom(simulate::toJson(summaryOf(recordOf(scenario))));
    EXPECT_EQ(summary.verdict, "broken");
    EXPECT_EQ(summary.complaints,
              std::vector<std::string>{
                  "pair.toml:17: slave error max: 250 ns at 11 s, at most 200 ns is allowed"});
    EXPECT_EQ(summary.bounds, 2u);
    EXPECT_EQ(summary.held, 1u);
    EXPECT_EQ(summary.node, "slave");
    EXPECT_EQ(summary.p50, 100.0);
    EXPECT_EQ(summary.max, 250.0);
}

TEST(ASummary, IsOfTheNodeWithTheGreatestP99) {
    const auto scenario = readPairWith("");
    RunRecord record = recordOf(scenario);
    record.results[0].samples.assign(200, {1.0, 300, 3, true});
    record.results[1].samples.assign(200, {1.0, 200, 3, true});
    record.results[1].samples[7].errorNs = 9000;
    const auto summary = summaryOf(record);
    EXPECT_EQ(summary.node, "master");
    EXPECT_EQ(summary.p99, 300.0);
    EXPECT_EQ(summary.max, 300.0);
}

TEST(ASummary, NamesTheFirstNodesWhereMany) {
    const auto scenario = readPairWith(kLimited);
    RunRecord record = recordOf(scenario);
    record.judgements.resize(1);
    record.judgements.resize(5, record.judgements[0]);
    const auto summary = summaryOf(record);
    ASSERT_EQ(summary.complaints.size(), 4u);
    EXPECT_EQ(summary.complaints[2], summary.complaints[0]);
    EXPECT_EQ(summary.complaints[3],
              "pair.toml:17: the same of 2 more nodes, which report.json names");
    EXPECT_EQ(summary.bounds, 5u);
}

TEST(ASummary, OfARunWithoutSamplesHasNoErrors) {
    const auto scenario = readPairWith("");
    RunRecord record = recordOf(scenario);
    record.results[1].samples.clear();
    const auto summary = simulate::summaryFrom(simulate::toJson(summaryOf(record)));
    EXPECT_EQ(summary.verdict, "held");
    EXPECT_EQ(summary.p99, std::nullopt);
    EXPECT_EQ(summary.node, "");
}

TEST(ASummary, OfAFailedRunSaysWhy) {
    const auto scenario = readPairWith("");
    RunRecord record = recordOf(scenario);
    record.failures = {"node slave ended with status 1 at 3 s"};
    EXPECT_EQ(summaryOf(record).verdict, "failed");
    EXPECT_EQ(summaryOf(record).complaints,
              std::vector<std::string>{"pair.toml: node slave ended with status 1 at 3 s"});
}

TEST(APicture, MarksEventsAndIsNotMadeOfNothing) {
    const auto scenario = readPairWith(kLimited);
    RunRecord record = recordOf(scenario);
    const std::string script = simulate::pictureScript(record, "/x/picture.png");
    EXPECT_NE(script.find("set output '/x/picture.png'"), std::string::npos);
    EXPECT_NE(script.find("10 100\n11 -250\n"), std::string::npos);
    EXPECT_NE(script.find("set label 'pulled' at 20,"), std::string::npos);
    EXPECT_NE(script.find("set arrow from 21.5,"), std::string::npos);
    EXPECT_NE(script.find(" title 'event begins'"), std::string::npos);
    EXPECT_NE(script.find(" title 'event is taken back'"), std::string::npos);
    record.results[1].samples.clear();
    EXPECT_EQ(simulate::pictureScript(record, "/x/picture.png"), "");
}

TEST(APicture, LabelsAnEventWithoutANameByItsDeedAndNode) {
    const auto scenario = readPairWith(R"([[event]]
at = 20
node = "slave"
process = "restart"
[[event]]
at = 30
card = "*"
link = "up"
[[event]]
name = "don't"
at = 40
card = "slave"
clear = true
)");
    const std::string script = simulate::pictureScript(recordOf(scenario), "x.png");
    EXPECT_NE(script.find("set label 'process restart slave' at 20,"), std::string::npos);
    EXPECT_NE(script.find("set label 'link up master and 1 more' at 30,"), std::string::npos);
    EXPECT_NE(script.find("set label 'don''t' at 40,"), std::string::npos);
    EXPECT_EQ(script.find("'event is taken back'"), std::string::npos);
}

TEST(APicture, SaysWhatItDoesNotShow) {
    const auto scenario = readPairWith(R"([[event]]
at = 1
every = 1
times = 41
card = "slave"
link = "up"
)");
    RunRecord record = recordOf(scenario);
    record.results[1].samples.assign(200, {1.0, 100, 3, true});
    record.results[1].samples[7].errorNs = 9000;
    const std::string script = simulate::pictureScript(record, "x.png");
    EXPECT_NE(script.find("'error (ns); 1 of 200 beyond'"), std::string::npos);
    EXPECT_NE(script.find("'event begins (the first 40)'"), std::string::npos);
}

TEST(APicture, OfALongRunKeepsItsExtremes) {
    const auto scenario = readPairWith("");
    RunRecord record = recordOf(scenario);
    record.results[1].samples.clear();
    for (int i = 0; i < 60'000; ++i) {
        record.results[1].samples.push_back({i / 1000.0, i == 31'415 ? 46'000 : 100, 0, true});
    }
    const std::string script = simulate::pictureScript(record, "x.png");
    EXPECT_NE(script.find("31.415 46000\n"), std::string::npos);
    EXPECT_LT(script.size(), 100'000u);
}

}  // namespace
