#include <gtest/gtest.h>

#include "tests/support/Daemon.h"
#include "tests/support/Hex.h"
#include "tests/support/StdoutCapture.h"

namespace {

constexpr int kFrameTrace = 0x80;

TEST(FrameTraceOfADaemon, ShowsEveryFrameThatAMasterSends) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const RunningDaemon daemon(masterConfig(), RunningDaemon::kMasterThreads);
    EXPECT_EQ(0, output.count("<< "));
    DbgTraceLevel = kFrameTrace;
    EXPECT_TRUE(awaitPrinted(output, "|058: << Sync               | 020000FFFE000001 | "));
    EXPECT_TRUE(awaitPrinted(
        output, "|                    |090: << Follow up          | 020000FFFE000001"));
    EXPECT_TRUE(awaitPrinted(
        output, "|                    |090: << Anounce            | 020000FFFE000001"));
    EXPECT_TRUE(awaitPrinted(output, "1[tsm0]"));
    DbgTraceLevel = 0;
}

TEST(FrameTraceOfADaemon, ShowsAFrameThatASlaveReceives) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const RunningDaemon daemon(slaveConfig(), RunningDaemon::kSlaveThreads);
    const PeerSocket peer("tsm0peer");
    DbgTraceLevel = kFrameTrace;
    ASSERT_TRUE(
        peer.send(fromHex("0180c200000e02000000000288f7"
                          "1b02004c0000000800000000000000000000000077000000000000010009"
                          "0105050000000000000000000000000000000000000000000000000000"
                          "00000000000000000000000000000000")));
    EXPECT_TRUE(
        awaitPrinted(output, "|090: >> Anounce            | 7700000000000001 | 009 | 000261 |\n"));
    EXPECT_TRUE(awaitPrinted(output, "2[tsm0]"));
    DbgTraceLevel = 0;
}

}  // namespace
