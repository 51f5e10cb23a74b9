#include "tools/simulate/Commands.h"

#include <gtest/gtest.h>

#include "tests/simulate/Scenarios.h"

namespace {

using simulate::Node;
using simulate::Scenario;

using Words = std::vector<std::string>;

TEST(TheCards, AreDescribedInOneText) {
    const Scenario scenario = readPairWith("[machine]\nload = 5\n");
    EXPECT_EQ(simulate::cardText(scenario, 9),
              "clock=simulated; state=/dev/shm/cards; seed=9; capture=/dev/shm/out/capture.pcapng; "
              "epoch_ns=1767225600000000000; load=5; master phc=0 net=link1; slave phc=1 net=link1 "
              "rate_ppb=37000.000");
}

TEST(TheCards, AreOnlyThoseThatNodesOwn) {
    const Scenario scenario =
        readPairWith("[[node]]\nname = \"t\"\nprogram = \"x\"\ncard_of = \"slave\"\n");
    EXPECT_EQ(simulate::cardText(scenario, 1).find("; t "), std::string::npos);
}

TEST(ATsyn, IsToldWhereToWriteWhat) {
    const Scenario scenario = readPairWith("");
    const Node& slave = *scenario.find("slave");
    const simulate::NodeFiles files = simulate::filesOf(slave, 2);
    EXPECT_EQ(simulate::commandOf(slave, {"/b/tsyn", ""}, files, "/b"),
              (Words{"/b/tsyn", "run", "slave", "--role", "slave", "--profile", "deployed",
                     "--json", "--log", "/dev/shm/out/slave.log", "--truth", "master", "--samples",
                     "/dev/shm/out/slave.csv.2", "--sample-rate", "100"}));
    const Node& master = *scenario.find("master");
    EXPECT_EQ(simulate::commandOf(master, {"/b/tsyn", ""}, simulate::filesOf(master, 1), "/b"),
              (Words{"/b/tsyn", "run", "master", "--role", "master", "--profile", "deployed",
                     "--json", "--log", "/dev/shm/out/master.log"}));
}

TEST(AnotherProgram, GetsItsOwnOptionsFilledIn) {
    const Scenario scenario = readPairWith(R"([[node]]
name = "tool"
program = "x"
card_of = "slave"
options = ["-i", "{if}", "{name}:{out}/{shm}", "{build}", "{config}", "{what}", "{", "a}b"]
)");
    const Node& tool = *scenario.find("tool");
    EXPECT_EQ(simulate::commandOf(tool, {"/usr/bin/x", ""}, simulate::filesOf(tool, 1), "/b"),
              (Words{"/usr/bin/x", "-i", "slave", "tool:/dev/shm/out//dev/shm", "/b",
                     "/dev/shm/out/tool.conf", "{what}", "{", "a}b"}));
}

TEST(AProgram, FindsTheSameEnvironmentEverywhere) {
    const Scenario scenario = readPairWith("");
    EXPECT_EQ(simulate::environmentOf(scenario.nodes[0], {"/b/tsyn", "/b/card.so"}, "cards", "/b"),
              (Words{"PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "LANG=C",
                     "TZ=UTC", "HOME=/", "VIRTUAL_I210=cards", "LD_PRELOAD=/b/card.so"}));
}

TEST(AProgram, ThatIsMissingIsTold) {
    Node node;
    node.program = "no-such-program";
    try {
        simulate::findProgram(node, "/b");
        FAIL() << "it was found";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(),
                     "program 'no-such-program' cannot be run; install it or name another");
    }
}

TEST(AProgram, OfTheBuildThatIsMissingIsToldWithWhatBuildsIt) {
    Node node;
    node.program = "{build}/flood";
    try {
        simulate::findProgram(node, "/b");
        FAIL() << "it was found";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "/b/flood is not there; run make");
    }
}

TEST(ATsyn, ThatIsNotBuiltIsToldWithWhatBuildsIt) {
    for (const bool i386 : {false, true}) {
        Node node;
        node.i386 = i386;
        try {
            simulate::findProgram(node, "/b/x86_64");
            FAIL() << "it was found";
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), i386 ? "/b/i386/tsyn is not there; run make"
                                            : "/b/x86_64/tsyn is not there; run make");
        }
    }
}

}  // namespace
