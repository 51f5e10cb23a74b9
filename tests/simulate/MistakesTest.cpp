#include <gtest/gtest.h>

#include "tests/simulate/Scenarios.h"

/** Each mistake is told with its line and what is allowed. */

namespace {

struct Mistake {
    std::string was; /**< a line of the pair, or empty: appended */
    std::string is;
    std::string told;
};

std::string textWith(const Mistake& mistake) {
    std::string text = kPairText;
    if (mistake.was.empty()) {
        return text + mistake.is;
    }
    const std::size_t at = text.find(mistake.was);
    EXPECT_NE(at, std::string::npos) << mistake.was;
    return text.replace(at, mistake.was.size(), mistake.is);
}

void expectTold(const std::vector<Mistake>& mistakes) {
    for (const Mistake& mistake : mistakes) {
        EXPECT_EQ(mistakesIn(textWith(mistake)), mistake.told) << mistake.is;
    }
}

TEST(MistakesInAScenario, NoneAreInThePair) {
    EXPECT_EQ(mistakesIn(kPairText), "");
}

TEST(MistakesInAScenario, OfTheWholeRunAreTold) {
    expectTold({
        {"duration = \"60s\"", "",
         "pair.toml:1: 'duration' is missing; write how long the run lasts, "
         "such as duration = \"62s\""},
        {"\"60s\"", "\"60 sec\"",
         "pair.toml:1: duration: write seconds or a text with units ns, us, "
         "ms, s, min, h, d, such as \"500ms\""},
        {"\"60s\"", "0", "pair.toml:1: duration: write more than 0 and at most 400 d"},
        {"seed = 3", "seed = -3",
         "pair.toml:2: seed: write a whole number from 0 to "
         "9223372036854775807"},
        {"seed = 3", "sed = 3",
         "pair.toml:2: sed: unknown; known are like, name, duration, profile, seed, epoch, "
         "machine, node, link, bridge, event and limit"},
        {"seed = 3", "name = \"a b\"",
         "pair.toml:2: name: 'a b' names no folder; write letters, digits, "
         "'_' and '-'"},
        {"seed = 3", "epoch = \"soon\"",
         "pair.toml:2: epoch: write a time of 1970 to 2261 such as "
         "2038-01-19T03:14:00Z, or nanoseconds since 1970"},
        {"", "[machine]\nload = 101\n",
         "pair.toml:18: [machine] load: write a whole number from 0 to 100"},
        {"", "[limit]\n", "pair.toml:17: 'limit': write [[limit]] above its keys"},
    });
}

TEST(MistakesInAScenario, OfTheFormAreTold) {
    const std::string told = mistakesIn("duration = \"60s\"\nseed = = 3\n");
    EXPECT_EQ(told.rfind("pair.toml:2: ", 0), 0u) << told;
    EXPECT_NE(told.find("a scenario is a TOML file"), std::string::npos) << told;
}

TEST(MistakesInAScenario, OfNodesAreTold) {
    expectTold({
        {"name = \"slave\"", "",
         "pair.toml:8: [[node]]: 'name' is missing; write name = \"master\" or the like"},
        {"role = \"slave\"", "role = \"salve\"",
         "pair.toml:10: [[node]] role: 'salve' is not allowed; write master or slave"},
        {"role = \"slave\"", "role = \"slave\"\nabi = \"arm\"",
         "pair.toml:11: [[node]] abi: 'arm' is not allowed; write x86_64 or i386"},
        {"role = \"slave\"", "program = \"ptp4l\"\nrole = \"slave\"",
         "pair.toml:11: [[node]] role: is only for the program tsyn; leave it out"},
        {"rate_ppb = 37000", "rate_ppb = \"37 ppm\"",
         "pair.toml:11: [[node]] rate_ppb: write a number of ppb without quotes from -100000000 to "
         "100000000"},
        {"rate_ppb = 37000", "jitter_ns = 1.5",
         "pair.toml:11: [[node]] jitter_ns: write a whole number of nanoseconds from 0 to "
         "1000000000"},
        {"rate_ppb = 37000", "cable_ns = \"250ns\"",
         "pair.toml:11: [[node]] cable_ns: write a whole number of nanoseconds without quotes from "
         "0 to 1000000000"},
        {"rate_ppb = 37000", "granularity_ns = 0",
         "pair.toml:11: [[node]] granularity_ns: write a whole number of nanoseconds from 1 to "
         "1000000000"},
        {"rate_ppb = 37000", "rate_ppb = { from = 1, to = 2 }",
         "pair.toml:11: [[node]] rate_ppb: write a number or, with a count from 2, { from = A, to "
         "= B }"},
        {"rate_ppb = 37000", "phc = 0",
         "pair.toml:8: [[node]] phc: 0 of 'slave' is taken by another; give each its own index"},
        {"rate_ppb = 37000", "start = \"60s\"",
         "pair.toml:11: [[node]] start: is not before the end at 60 s"},
        {"rate_ppb = 37000", "options = [1]",
         "pair.toml:11: [[node]] options: write texts in brackets, such as [\"a\", \"b\"]"},
        {"truth = \"master\"", "truth = \"mister\"",
         "pair.toml:12: [[node]] truth: 'mister' is no node with a card; write master or slave"},
        {"truth = \"master\"", "sample_rate = 10",
         "pair.toml:12: [[node]] sample_rate: there is no truth to sample against; write truth = "
         "CARD"},
    });
}

TEST(MistakesInAScenario, OfNamesAreTold) {
    expectTold({
        {"truth = \"master\"\n",
         "truth = \"m\"\n[[node]]\nname = \"n\"\nrole = \"slave\"\ncount = 10\n",
         "pair.toml:12: [[node]] truth: 'm' is no node with a card; write master, slave, n1, n2, "
         "n3, n4, n5, n6 or another"},
        {"", "[[node]]\nname = \"slave\"\nrole = \"slave\"\n",
         "pair.toml:18: [[node]] name: 'slave' is taken by the node of line 8; give each its own "
         "name"},
    });
}

TEST(MistakesInAScenario, OfCablesAreTold) {
    expectTold({
        {"[\"master\", \"slave\"]", "[\"master\", \"salve\"]",
         "pair.toml:15: [[link]] between: 'salve' is no node; write master or slave"},
        {"[\"master\", \"slave\"]", "\"slave\"",
         "pair.toml:15: [[link]] between: a link has two ends; name two nodes, or write a "
         "[[bridge]]"},
        {"[[link]]\nbetween = [\"master\", \"slave\"]", "[[bridge]]\nnodes = \"slave\"",
         "pair.toml:4: [[node]]: 'master' is on no [[link]] and no [[bridge]]; it has to be on "
         "one"},
        {"", "[[bridge]]\nnodes = \"slave\"\n",
         "pair.toml:17: 'slave' is also named by line 14; a node is on one link or bridge, once"},
        {"[\"master\", \"slave\"]", "[\"*\", \"slave\"]",
         "pair.toml:15: [[link]] between: a link has two ends; name two nodes, or write a "
         "[[bridge]]"},
        {"[[link]]\nbetween = [\"master\", \"slave\"]", "[[bridge]]\nnodes = [\"*\", \"slave\"]",
         "pair.toml:14: 'slave' is named twice; a node is on one link or bridge, once"},
        {"", "[[bridge]]\nname = \"slave\"\nnodes = []\n",
         "pair.toml:18: [[bridge]] name: 'slave' is no name or a node's; write a letter, then "
         "letters, digits or '_', up to 15 in all"},
        {"", "[[node]]\nname = \"tool\"\nprogram = \"x\"\ncard_of = \"slave\"\ncable_ns = 5\n",
         "pair.toml:21: [[node]] cable_ns: the node has no card of its own; give it to 'slave'"},
    });
}

std::string event(const std::string& lines) {
    return "[[event]]\nat = 10\ncard = \"slave\"\n" + lines;
}

TEST(MistakesInAScenario, OfEventsAreTold) {
    expectTold({
        {"", event(""),
         "pair.toml:17: [[event]]: says 0 things to do; write exactly one of fault, link, phc, "
         "refuse, step_ns, rate_ppb, clear, interface, process or signal"},
        {"", event("link = \"down\"\nphc = \"hidden\"\n"),
         "pair.toml:17: [[event]]: says 2 things to do; write exactly one of fault, link, phc, "
         "refuse, step_ns, rate_ppb, clear, interface, process or signal"},
        {"", event("fault = \"lose\"\n"),
         "pair.toml:20: [[event]] fault: 'lose' is not allowed; write corrupt, drop, duplicate, "
         "reorder, rx-stamp-lost, stamp-late or stamp-lost"},
        {"", event("fault = \"drop\"\ntype = \"Sink\"\n"),
         "pair.toml:21: [[event]] type: 'Sink' is no message; write Announce, Delay_Req, "
         "Follow_Up, Pdelay_Req, Pdelay_Resp, Pdelay_Resp_Follow_Up, Signaling or Sync, or a "
         "number 0 to 15"},
        {"", event("fault = \"drop\"\nlate_ns = 5\n"),
         "pair.toml:21: [[event]] late_ns: unknown; known are name, at, for, times, every, card, "
         "node, fault, type, count and until_cleared"},
        {"", event("fault = \"stamp-late\"\n"),
         "pair.toml:17: [[event]]: 'late_ns' is missing; write by how many nanoseconds"},
        {"", event("fault = \"drop\"\ncount = 3\nfor = 1\n"),
         "pair.toml:21: [[event]] count: there is until_cleared or for already; write one of "
         "them"},
        {"", event("clear = true\nfor = 1\n"),
         "pair.toml:21: [[event]] for: 'clear' cannot be taken back; leave it out"},
        {"", "[[event]]\nat = 10\nlink = \"down\"\n",
         "pair.toml:17: [[event]]: write either card or node, to say whom"},
        {"", "[[event]]\nat = 10\nnode = \"salve\"\nprocess = \"kill\"\n",
         "pair.toml:19: [[event]] node: 'salve' is no node; write master or slave"},
    });
}

TEST(MistakesInAScenario, OfTimesAreTold) {
    expectTold({
        {"", "[[event]]\nat = \"60s\"\ncard = \"slave\"\nclear = true\n",
         "pair.toml:18: [[event]] at: is not before the end of the run at 60 s"},
        {"", event("link = \"down\"\nfor = \"51s\"\n"),
         "pair.toml:21: [[event]] for: the event would end at 61 s; the run ends at 60 s"},
        {"", event("link = \"down\"\nevery = \"10s\"\ntimes = 7\n"),
         "pair.toml:22: [[event]] times: the event would end at 70 s; the run ends at 60 s"},
        {"", event("link = \"down\"\nevery = \"10s\"\n"),
         "pair.toml:21: [[event]] every: write both every and times"},
        {"", event("link = \"down\"\nfor = \"10s\"\nevery = \"10s\"\ntimes = 2\n"),
         "pair.toml:21: [[event]] for: lasts until the next repetition; write less than every"},
    });
}

std::string limit(const std::string& lines) {
    return "[[limit]]\nnode = \"slave\"\n" + lines;
}

TEST(MistakesInAScenario, OfLimitsAreTold) {
    expectTold({
        {"", limit("what = \"eror\"\np50 = 1\n"),
         "pair.toml:19: [[limit]] what: 'eror' is not allowed; write error, offset, delay, rate, "
         "outside, width, recovery, counter, state or log"},
        {"", limit("what = \"error\"\n"),
         "pair.toml:17: [[limit]]: bounds nothing; write one or more of p50, p99, max, rms, mean "
         "or count"},
        {"", limit("what = \"error\"\np99 = \"1us\"\n"),
         "pair.toml:20: [[limit]] p99: write a whole or decimal number of nanoseconds without "
         "quotes from 0 to 1e+18"},
        {"", limit("what = \"rate\"\np99 = -1\n"),
         "pair.toml:20: [[limit]] p99: write a whole or decimal number of ppm from 0 to 1e+18"},
        {"", limit("what = \"error\"\np50 = { least = 1 }\n"),
         "pair.toml:20: [[limit]] p50: 'least' is unknown; write min, max or both"},
        {"", limit("what = \"error\"\np50 = { min = 2, max = 1 }\n"),
         "pair.toml:20: [[limit]] p50: write min, max or both, and no min above the max"},
        {"", "[[limit]]\nnode = \"master\"\nwhat = \"error\"\np50 = 1\n",
         "pair.toml:19: [[limit]] what: 'master' has no error; give the node a truth"},
        {"", limit("what = \"error\"\np50 = 1\nto = \"61s\"\n"),
         "pair.toml:21: [[limit]] to: the window from 0 s to 61 s is empty or goes beyond the end "
         "at 60 s"},
        {"", limit("what = \"error\"\np50 = 1\nafter = \"x\"\n"),
         "pair.toml:21: [[limit]] after: 'x' is no event; none has a name; give the event one"},
        {"",
         event("name = \"a\"\nclear = true\n") + event("name = \"b\"\nclear = true\n") +
             limit("what = \"error\"\np50 = 1\nafter = \"c\"\n"),
         "pair.toml:31: [[limit]] after: 'c' is no event; write a or b"},
        {"", limit("what = \"log\"\nmatches = \"(\"\nlines = 0\nfrom = 1\n"),
         "pair.toml:17: [[limit]]: a log has no window; leave from, to and after out\n"
         "pair.toml:20: [[limit]] matches: is no regular expression; write one as of ECMAScript"},
        {"", limit("what = \"counter\"\ncounter = \"card.x\"\nvalue = 0\n"),
         "pair.toml:20: [[limit]] counter: 'card.x' is no counter of a card; write "
         "card.ptp_frames_sent, card.event_frames_sent, card.tx_timestamps, card.rx_timestamps, "
         "card.rx_fallbacks, card.frames_swallowed, card.clock_readings or "
         "card.clock_adjustments"},
    });
}

TEST(MistakesInAScenario, BringNoFurtherOnesAlong) {
    expectTold({
        {"[[link]]\nbetween", "[[brigde]]\nnodes",
         "pair.toml:14: brigde: unknown; known are like, name, duration, profile, seed, epoch, "
         "machine, node, link, bridge, event and limit"},
        {"", limit("what = \"recover\"\nafter = \"x\"\nbelow_ns = 5\nwithin = 1\n"),
         "pair.toml:19: [[limit]] what: 'recover' is not allowed; write error, offset, delay, "
         "rate, outside, width, recovery, counter, state or log"},
        {"",
         "[[event]]\nname = \"late\"\nat = 61\ncard = \"slave\"\nclear = true\n" +
             limit("what = \"error\"\np50 = 1\nafter = \"late\"\n"),
         "pair.toml:19: [[event]] at: is not before the end of the run at 60 s"},
    });
}

TEST(MistakesInAScenario, AreAllToldInTheOrderOfTheirLines) {
    EXPECT_EQ(mistakesIn("x = 1\nduration = true\n"),
              "pair.toml:1: 'node' is missing; write a [[node]] for each "
              "program of the run\n"
              "pair.toml:1: x: unknown; known are like, name, duration, profile, seed, "
              "epoch, machine, node, link, bridge, event and limit\n"
              "pair.toml:2: duration: write seconds or a text with units ns, "
              "us, ms, s, min, h, d, such as \"500ms\"");
}

TEST(AFile, ThatCannotBeReadIsTold) {
    try {
        simulate::readScenario("/does/not/exist.toml");
        FAIL() << "it was read";
    } catch (const simulate::ScenarioError& error) {
        EXPECT_STREQ(error.what(),
                     "/does/not/exist.toml:1: cannot be read (No such file or directory); name a "
                     "scenario's TOML file");
    }
}

}  // namespace
