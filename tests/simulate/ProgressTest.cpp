#include "tools/simulate/Progress.h"

#include <gtest/gtest.h>

#include "tests/simulate/Scenarios.h"
#include "tools/simulate/Options.h"

namespace {

simulate::Outcome outcomeOf(const simulate::Scenario& scenario) {
    simulate::Outcome outcome;
    outcome.job = {&scenario, 7, "/r/pair/seed-7"};
    outcome.wallS = 0.5;
    outcome.summary.verdict = "broken";
    outcome.summary.complaints = {"pair.toml:17: slave error p99: 345 ns"};
    outcome.summary.bounds = 2;
    outcome.summary.held = 1;
    outcome.summary.node = "slave";
    outcome.summary.p50 = 100.4;
    outcome.summary.p99 = 345.0;
    outcome.summary.max = 46000.0;
    return outcome;
}

TEST(ABar, IsFilledAsFarAsTheRunHasCome) {
    EXPECT_EQ(simulate::bar(0.0, 4), "[----]");
    EXPECT_EQ(simulate::bar(0.5, 4), "[##--]");
    EXPECT_EQ(simulate::bar(1.7, 4), "[####]");
}

TEST(TheTable, HasALineForEachRun) {
    const auto scenario = readPairWith("");
    EXPECT_EQ(simulate::tableOf({outcomeOf(scenario)}),
              "scenario        seed  verdict        bounds  node        p50 ns       p99 ns       "
              "max ns    speed\n"
              "pair               7  broken            1/2  slave          100          345        "
              "46000    120 x\n");
}

TEST(ABrokenLimit, IsToldWithTheCommandThatRepeatsIt) {
    const auto scenario = readPairWith("");
    EXPECT_EQ(simulate::complaintsOf(outcomeOf(scenario), "build/x86_64/simulate", " --out r"),
              "pair.toml:17: slave error p99: 345 ns (seed 7)\n"
              "  again: build/x86_64/simulate pair.toml --seeds 7 --out r; "
              "results: /r/pair/seed-7\n");
}

TEST(AWordOfAShell, IsQuotedWhereItHasTo) {
    EXPECT_EQ(simulate::shellWord("../out-1/a_b.toml"), "../out-1/a_b.toml");
    EXPECT_EQ(simulate::shellWord("my results"), "'my results'");
    EXPECT_EQ(simulate::shellWord("it's"), "'it'\\''s'");
    EXPECT_EQ(simulate::shellWord(""), "''");
}

TEST(Seeds, AreOneOrARange) {
    EXPECT_EQ(simulate::parseSeeds("7")->first, 7u);
    EXPECT_EQ(simulate::parseSeeds("7")->last, 7u);
    EXPECT_EQ(simulate::parseSeeds("0..20")->first, 0u);
    EXPECT_EQ(simulate::parseSeeds("0..20")->last, 20u);
    for (const char* text : {"", "x", "1..", "..2", "3..2", "1...2", "-1", "1..2..3", "1-2",
                             "0..1000000", "9223372036854775808"}) {
        EXPECT_FALSE(simulate::parseSeeds(text)) << "'" << text << "'";
    }
}

TEST(Seeds, ThatAreWrongAreToldWithTheReason) {
    EXPECT_EQ(simulate::seedsMistake("1..3"), "");
    EXPECT_EQ(simulate::seedsMistake("3..1"), "3 is above 1; write the lower seed first");
    EXPECT_EQ(simulate::seedsMistake("1-3"), "'1-3' is no seed; write A or A..B");
    EXPECT_EQ(simulate::seedsMistake("0..1000000"), "more than a million seeds; write fewer");
}

}  // namespace
