#include "tools/tsyn/run/SenderWatch.h"

#include <gtest/gtest.h>

namespace {

/** Looked at once a second: so many Syncs, by which the ids advance so far. */
class Look {
public:
    void second(unsigned int syncs, int advance) {
        record_.acceptedSync = record_.acceptedSync + syncs;
        record_.sequenceId = (record_.sequenceId + static_cast<unsigned int>(advance)) & 0xFFFF;
        watch_.update(record_, nowS_ += 1.0);
    }
    bool seesTwo() const { return watch_.seesTwo(); }

private:
    tsyn::SenderWatch watch_{125.0};
    gPtpTimeDataStruct record_{};
    double nowS_ = 0.0;
};

Look after(unsigned int seconds) {
    Look look;
    for (unsigned int i = 0; i < seconds; ++i) {
        look.second(8, 8);
    }
    return look;
}

TEST(SenderWatch, OneSenderIsNoneTooMany) {
    EXPECT_FALSE(after(10).seesTwo());
}

TEST(SenderWatch, TwiceAsManySyncsAsIdsAreOfTwoSenders) {
    Look look = after(3);
    look.second(16, 8);
    EXPECT_FALSE(look.seesTwo());
    look.second(16, 8);
    EXPECT_TRUE(look.seesTwo());
}

TEST(SenderWatch, FarApartIdsAreOfTwoSenders) {
    Look look = after(3);
    look.second(16, 30000);
    look.second(16, -29992);
    look.second(16, 30000);
    look.second(16, -29992);
    EXPECT_TRUE(look.seesTwo());
}

TEST(SenderWatch, NewStartLostSyncsAndTheEndOfTheIdsAreOfOne) {
    Look look = after(3);
    look.second(8, -20000);
    look.second(3, 8);
    look.second(8, 8);
    look.second(8, 20000);
    look.second(8, 20000);
    EXPECT_FALSE(look.seesTwo());
}

TEST(SenderWatch, ForgetsTheSecondWhenItHasLeft) {
    Look look = after(3);
    look.second(16, 8);
    look.second(16, 8);
    for (int i = 0; i < 5; ++i) {
        look.second(8, 8);
    }
    EXPECT_FALSE(look.seesTwo());
}

}  // namespace
