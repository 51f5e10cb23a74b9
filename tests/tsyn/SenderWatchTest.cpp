#include "tools/tsyn/run/SenderWatch.h"

#include <gtest/gtest.h>

namespace {

/** Looked at once a second: so many Syncs, by which the ids advance so far. */
class Watched {
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

Watched after(unsigned int seconds) {
    Watched watched;
    for (unsigned int i = 0; i < seconds; ++i) {
        watched.second(8, 8);
    }
    return watched;
}

TEST(SenderWatch, OneSenderIsNoneTooMany) {
    EXPECT_FALSE(after(10).seesTwo());
}

TEST(SenderWatch, TwiceAsManySyncsAsIdsAreOfTwoSenders) {
    Watched watched = after(3);
    watched.second(16, 8);
    EXPECT_FALSE(watched.seesTwo());
    watched.second(16, 8);
    EXPECT_TRUE(watched.seesTwo());
}

TEST(SenderWatch, FarApartIdsAreOfTwoSenders) {
    Watched watched = after(3);
    watched.second(16, 30000);
    watched.second(16, -29992);
    watched.second(16, 30000);
    watched.second(16, -29992);
    EXPECT_TRUE(watched.seesTwo());
}

TEST(SenderWatch, NewStartLostSyncsAndTheEndOfTheIdsAreOfOne) {
    Watched watched = after(3);
    watched.second(8, -20000);
    watched.second(3, 8);
    watched.second(8, 8);
    watched.second(8, 20000);
    watched.second(8, 20000);
    EXPECT_FALSE(watched.seesTwo());
}

TEST(SenderWatch, ForgetsTheSecondWhenItHasLeft) {
    Watched watched = after(3);
    watched.second(16, 8);
    watched.second(16, 8);
    for (int i = 0; i < 5; ++i) {
        watched.second(8, 8);
    }
    EXPECT_FALSE(watched.seesTwo());
}

}  // namespace
