#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>

#include "tests/support/Sandbox.h"
#include "tests/virtual_i210/Programs.h"
#include "tools/virtual_i210/VirtualI210.h"

namespace {

using testing::HasSubstr;

class Command : public testing::Test {
protected:
    void SetUp() override {
        sandbox_.addVethPair("tsm0", "tss0");
        setenv("VIRTUAL_I210",
               "state=/dev/shm/cards seed=21; tsm0 phc=0 cable_ns=300;"
               "tss0 phc=1 rate_ppb=37000 offset_ns=1500000000 cable_ns=300",
               1);
    }

    Sandbox sandbox_;
};

TEST_F(Command, ShowsAndOrders) {
    const std::string tool = VIRTUAL_I210_TOOL;
    EXPECT_THAT(outputOf(tool + " show"), HasSubstr("tss0 phc 1 time "));
    EXPECT_EQ("", outputOf(tool + " fault tss0 drop --count 3 --type 8"));
    EXPECT_THAT(outputOf(tool + " show"), HasSubstr("fault drop for 3 frames"));
    EXPECT_EQ("", outputOf(tool + " link tss0 down"));
    EXPECT_TRUE(virtual_i210::cards().at(1).linkDown);
    EXPECT_EQ("", outputOf(tool + " clear tss0"));
    EXPECT_FALSE(virtual_i210::cards().at(1).linkDown);
    EXPECT_EQ("", outputOf(tool + " rate tss0 -250.5"));
    EXPECT_DOUBLE_EQ(-250.5, virtual_i210::cards().at(1).ratePpb);
    EXPECT_EQ("'eth7' is not a card of VIRTUAL_I210; name one of its interfaces\n",
              outputOf(tool + " step eth7 1"));
    EXPECT_EQ("VIRTUAL_I210 is not set; describe the cards in it first\n",
              outputOf("env -u VIRTUAL_I210 " + tool + " show"));
}

TEST_F(Command, OfBothAbisSeesTheSameClock) {
    virtual_i210::cards();
    std::istringstream paths(VIRTUAL_I210_OTHER_TOOLS);
    int compared = 0;
    for (std::string path; std::getline(paths, path, ':');) {
        if (access(path.c_str(), X_OK) != 0) {
            continue;
        }
        for (std::uint64_t ahead = 0; ahead < 50; ++ahead) {
            const std::uint64_t raw = virtual_i210::rawNowNs() + ahead * 7'654'321'987u;
            EXPECT_EQ(std::to_string(*virtual_i210::truePhcNs("tss0", raw)) + "\n",
                      outputOf(path + " time tss0 " + std::to_string(raw)));
        }
        ++compared;
    }
    if (compared == 0) {
        GTEST_SKIP() << "no build of the virtual_i210 command beside this one";
    }
}

}  // namespace
