#include "tools/virtual_i210/Faults.h"

#include <gtest/gtest.h>

namespace {

using virtual_i210::Fault;
using virtual_i210::FaultBoard;
using virtual_i210::FaultOrder;

TEST(FaultBoardTest, CountsDown) {
    FaultBoard board{};
    FaultOrder order;
    order.fault = Fault::kFrameDropped;
    order.count = 2;
    board.order(order);
    EXPECT_TRUE(board.take(Fault::kFrameDropped, 0));
    EXPECT_FALSE(board.take(Fault::kFrameDuplicated, 0));
    EXPECT_EQ(1u, board.remaining(Fault::kFrameDropped));
    EXPECT_TRUE(board.take(Fault::kFrameDropped, 8));
    EXPECT_FALSE(board.take(Fault::kFrameDropped, 0));
}

TEST(FaultBoardTest, KeepsToItsMessageType) {
    FaultBoard board{};
    FaultOrder order;
    order.fault = Fault::kFrameCorrupted;
    order.messageType = 8;
    order.byte = 40;
    order.bit = 3;
    board.order(order);
    EXPECT_FALSE(board.take(Fault::kFrameCorrupted, 0));
    const auto taken = board.take(Fault::kFrameCorrupted, 8);
    ASSERT_TRUE(taken);
    EXPECT_EQ(40u, taken->byte);
    EXPECT_EQ(3u, taken->bit);
}

TEST(FaultBoardTest, LastsUntilCleared) {
    FaultBoard board{};
    FaultOrder order;
    order.fault = Fault::kTxTimestampLost;
    order.count = virtual_i210::kUntilCleared;
    board.order(order);
    board.linkDown.store(1);
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(board.take(Fault::kTxTimestampLost, 0));
    }
    board.clear();
    EXPECT_FALSE(board.take(Fault::kTxTimestampLost, 0));
    EXPECT_EQ(0u, board.linkDown.load());
}

}  // namespace
