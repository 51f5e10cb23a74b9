#include "ptp/clockitems.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Hex.h"
#include "tests/support/Packed.h"

namespace {

class ClockItems : public ::testing::Test {
protected:
    ClockItems() { clockItems.clear(); }
};

TEST_F(ClockItems, AnUnknownPortGetsARecordOfInitialValues) {
    const ClockItemMembersType& item = clockItemOf({1, 1});
    EXPECT_EQ(1U, clockItems.size());
    EXPECT_EQ(0U, item.initialised);
    EXPECT_EQ(0, item.measuredDelay);
    EXPECT_EQ(1, item.respPortNumber);
    EXPECT_EQ(-1, item.syncSequenceId);
    EXPECT_EQ(-1, item.unusedSequenceId);
    EXPECT_EQ(2456000, item.unusedWord);
    EXPECT_EQ(0U, item.pdelaySeqNo);
}

TEST_F(ClockItems, AnUnknownPortGetsZeroElsewhere) {
    ClockItemMembersType item = clockItemOf({1, 1});
    item.respPortNumber = 0;
    item.syncSequenceId = 0;
    item.unusedSequenceId = 0;
    item.unusedWord = 0;
    EXPECT_EQ(std::string(2 * offsetof(ClockItemMembersType, respPortNumber), '0'),
              toHex(reinterpret_cast<const unsigned char*>(&item),
                    offsetof(ClockItemMembersType, respPortNumber)));
}

TEST_F(ClockItems, AKnownPortKeepsItsRecord) {
    clockItemOf({1, 1}).measuredDelay = 77;
    EXPECT_EQ(77, clockItemOf({1, 1}).measuredDelay);
    EXPECT_EQ(1U, clockItems.size());
}

TEST_F(ClockItems, PortsOfOneClockAreApart) {
    ClockItemMembersType& first = clockItemOf({1, 1});
    EXPECT_NE(&first, &clockItemOf({1, 2}));
    EXPECT_EQ(&first, &clockItemOf({1, 1}));
}

TEST_F(ClockItems, OrderIsThatOfTheSignedIdentityThenThePort) {
    for (const PortKey& key : {PortKey(1, 2), PortKey(0, 9), PortKey(1, 1), PortKey(-1, 5)}) {
        clockItemOf(key);
    }
    std::vector<PortKey> keys;
    keys.reserve(clockItems.size());
    for (const auto& entry : clockItems) {
        keys.push_back(entry.first);
    }
    EXPECT_EQ((std::vector<PortKey>{PortKey(-1, 5), PortKey(0, 9), PortKey(1, 1), PortKey(1, 2)}),
              keys);
}

TEST_F(ClockItems, TwoThreadsMayLookUpNewPortsAtOnce) {
    const auto lookUp = [](long long clock) {
        for (unsigned short port = 0; port < 500; ++port) {
            clockItemOf({clock, port}).measuredDelay = static_cast<int>(port);
        }
    };
    std::thread other(lookUp, 1);
    lookUp(2);
    other.join();
    EXPECT_EQ(1000U, clockItems.size());
    EXPECT_EQ(499, clockItemOf({1, 499}).measuredDelay);
}

TEST(TimestampHistory, ShiftMovesBackAndKeepsTheLatestInFront) {
    TimestampHistory history{};
    for (unsigned int i = 0; i < 8; ++i) {
        history.entries[i].ns = 10 + i;
    }
    history.shift();
    EXPECT_EQ(10U, valueOf(history.entries[0].ns));
    for (unsigned int i = 1; i < 8; ++i) {
        EXPECT_EQ(9 + i, valueOf(history.entries[i].ns));
    }
}

TEST(TimestampHistory, ShiftMovesWholeSlots) {
    TimestampHistory history{};
    history.entries[0].unused[2] = 0xABCD;
    history.shift();
    EXPECT_EQ(0xABCDU, history.entries[1].unused[2]);
}

}  // namespace
