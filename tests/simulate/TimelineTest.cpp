#include "tools/simulate/Timeline.h"

#include <gtest/gtest.h>

#include "tests/simulate/Scenarios.h"

namespace {

using simulate::Step;

/** "start master 0, fault drop slave 10, ..." with back for what is taken back */
std::string told(const std::vector<Step>& steps) {
    std::string text;
    for (const Step& step : steps) {
        text +=
            (text.empty() ? "" : ", ") +
            (step.kind == Step::Kind::kStart ? "start"
                                             : (step.kind == Step::Kind::kTakeBack ? "back " : "") +
                                                   simulate::describe(*step.event)) +
            " " + step.node + " " + std::to_string(step.atNs / 1'000'000'000);
    }
    return text;
}

TEST(ATimeline, BeginsWithTheStartsOfNodes) {
    EXPECT_EQ(told(simulate::timelineOf(readPairWith(""))), "start master 0, start slave 0");
}

TEST(ATimeline, LeavesOutWhatOnlyAnEventStarts) {
    const auto scenario = readPairWith(R"([[node]]
name = "late"
role = "master"
card_of = "master"
start = "never"
[[event]]
at = 5
node = "late"
process = "start"
)");
    EXPECT_EQ(told(simulate::timelineOf(scenario)),
              "start master 0, start slave 0, process start late 5");
}

TEST(ATimeline, HasRepetitionsInTheOrderOfTime) {
    const auto scenario = readPairWith(R"([[event]]
at = 20
card = ["master", "slave"]
link = "down"
for = 4
[[event]]
at = 18
card = "slave"
fault = "drop"
for = 1
every = 3
times = 2
)");
    EXPECT_EQ(told(simulate::timelineOf(scenario)),
              "start master 0, start slave 0, fault drop slave 18, back fault drop slave 19, "
              "link down master 20, link down slave 20, fault drop slave 21, "
              "back fault drop slave 22, back link down master 24, back link down slave 24");
}

}  // namespace
