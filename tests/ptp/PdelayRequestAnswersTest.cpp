#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <thread>

#include "base/DbgLog.h"
#include "tests/ptp/PdelayExchange.h"
#include "tests/support/Packed.h"

namespace {

const char kReport[] =
    "?@processIncoming(900): FATAL: invalid Runtime condition: 'clockItems[item].t4 < "
    "clockItems[item].t1'\n";

class PdelayResponse : public PdelayExchange {};

TEST_F(PdelayResponse, NotesItsSenderAndBothClocks) {
    PTPMsgPathDelayReq message(0, kPort);
    request(message, 1000);
    platform().extTimes = {{111, 222}};
    EXPECT_EQ(1U, handle(pdelayAnswer(3, 1, 5000), 2000));
    const ClockItemMembersType& item = clockItemOf(kPortKey);
    EXPECT_EQ(7, item.respPortNumber);
    EXPECT_EQ(111U, valueOf(item.extTime1));
    EXPECT_EQ(222U, valueOf(item.extTime2));
    EXPECT_EQ(5000U, valueOf(item.t2.ns));
    EXPECT_EQ(2000U, valueOf(item.t4.ns));
}

TEST_F(PdelayResponse, OfAnotherSequenceIsReportedAndIgnored) {
    PTPMsgPathDelayReq message(0, kPort);
    request(message, 1000);
    const std::string output = printedBy([&] { EXPECT_EQ(0U, respond(9, 5000, 2000)); });
    EXPECT_EQ(2, occurrences(output, "[ERROR] "));
    EXPECT_LT(output.find(">clockItems[item].pdelaySeqNo: 1\n"),
              output.find(">ptpdata->sequenceId: 9\n"));
    EXPECT_EQ(0U, valueOf(clockItemOf(kPortKey).t2.ns));
    EXPECT_EQ(0U, valueOf(clockItemOf(kPortKey).t4.ns));
    EXPECT_EQ(7, clockItemOf(kPortKey).respPortNumber);
}

TEST_F(PdelayResponse, TheSecondToARequestIsIgnoredSilently) {
    PTPMsgPathDelayReq message(0, kPort);
    request(message, 1000);
    EXPECT_EQ(1U, respond(1, 5000, 2000));
    EXPECT_EQ("", printedBy([&] { EXPECT_EQ(0U, respond(1, 6000, 3000)); }));
    EXPECT_EQ(5000U, valueOf(clockItemOf(kPortKey).t2.ns));
    EXPECT_EQ(2000U, valueOf(clockItemOf(kPortKey).t4.ns));
}

TEST_F(PdelayResponse, IsIgnoredWhileEitherTimeOfTheExchangeIsThere) {
    ClockItemMembersType& item = clockItemOf(kPortKey);
    item.pdelaySeqNo = 1;
    item.t2.ns = 7;
    EXPECT_EQ(0U, respond(1, 5000, 2000));
    EXPECT_EQ(0U, valueOf(item.t4.ns));
    item.t2.ns = 0;
    item.t4.ns = 9;
    EXPECT_EQ(0U, respond(1, 5000, 2000));
    EXPECT_EQ(0U, valueOf(item.t2.ns));
}

TEST_F(PdelayResponse, BeforeItsRequestTakesTheRequestTimeAtTraceLevel0) {
    PTPMsgPathDelayReq message(0, kPort);
    request(message, 1000);
    EXPECT_EQ("", printedBy([&] { EXPECT_EQ(1U, respond(1, 5000, 999)); }));
    EXPECT_EQ(1000U, valueOf(clockItemOf(kPortKey).t4.ns));
}

TEST_F(PdelayResponse, AtTheTimeOfItsRequestIsNotReported) {
    DbgTraceLevel = 1;
    PTPMsgPathDelayReq message(0, kPort);
    request(message, 1000);
    EXPECT_EQ("", printedBy([&] { EXPECT_EQ(1U, respond(1, 5000, 1000)); }));
}

TEST_F(PdelayResponse, BeforeItsRequestIsReportedUntilTheTraceLevelDropsTo0) {
    DbgTraceLevel = 1;
    PTPMsgPathDelayReq message(0, kPort);
    request(message, 1000);
    const StdoutCapture output;
    std::thread handler([&] { EXPECT_EQ(1U, respond(1, 5000, 999)); });
    EXPECT_TRUE(output.await("\n", 3));
    __atomic_store_n(&DbgTraceLevel, 0, __ATOMIC_RELAXED);
    handler.join();
    EXPECT_EQ(0U, output.text().find(std::string(kReport) + kReport + kReport));
    EXPECT_EQ(1000U, valueOf(clockItemOf(kPortKey).t4.ns));
}

TEST_F(PdelayResponse, BeforeItsRequestHoldsTheProcessUntilItIsKilled) {
    DbgTraceLevel = 2;
    PTPMsgPathDelayReq message(0, kPort);
    request(message, 1000);
    const StdoutCapture output;
    const pid_t child = fork();
    if (child == 0) {
        respond(1, 5000, 999);
        _exit(0);
    }
    // Any lines end the wait: were they not the report, the loop would fill the disk meanwhile.
    EXPECT_TRUE(output.await("\n", 3));
    int status = 0;
    EXPECT_EQ(0, waitpid(child, &status, WNOHANG));
    kill(child, SIGKILL);
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(0U, output.text().find(std::string(kReport) + kReport + kReport));
}

class PdelayFollowUp : public PdelayExchange {};

TEST_F(PdelayFollowUp, WithoutAResponseCountsAsIncomplete) {
    PTPMsgPathDelayReq message(0, kPort);
    request(message, 1000);
    EXPECT_EQ("", printedBy([&] { EXPECT_EQ(0U, followUp(1, 6000)); }));
    EXPECT_EQ(1U, valueOf(record.incompletePdelay));
    EXPECT_EQ(6000U, valueOf(clockItemOf(kPortKey).t3.ns));
    EXPECT_EQ(0U, valueOf(clockItemOf(kPortKey).prev_t3.ns));
    EXPECT_EQ(0U, valueOf(record.pdelayT3));
}

TEST_F(PdelayFollowUp, WithoutEitherTimeOfTheResponseCountsAsIncomplete) {
    ClockItemMembersType& item = clockItemOf(kPortKey);
    item.t1.ns = 1000;
    item.t2.ns = 5000;
    EXPECT_EQ(0U, followUp(1, 6000));
    item.t2.ns = 0;
    item.t4.ns = 2000;
    EXPECT_EQ(0U, followUp(1, 6000));
    EXPECT_EQ(2U, valueOf(record.incompletePdelay));
    EXPECT_EQ(0, item.measuredDelay);
}

TEST_F(PdelayFollowUp, ASecondOneCountsAsIncomplete) {
    PTPMsgPathDelayReq message(0, kPort);
    exchange(message, {1000000000000, 5000000000500, 5000000100500, 1000000101000});
    EXPECT_EQ(0U, followUp(1, 5000000100500));
    EXPECT_EQ(1U, valueOf(record.incompletePdelay));
    EXPECT_EQ(550, clockItemOf(kPortKey).measuredDelay);
}

TEST_F(PdelayFollowUp, BeforeTheTransmitTimeWaits100MicrosecondsOnce) {
    PTPMsgPathDelayReq message(0, kPort);
    request(message, 0);
    respond(1, 5000, 2000);
    platform().sleeps = {nullptr};
    EXPECT_EQ(0U, followUp(1, 6000));
    EXPECT_EQ(100U, platform().lastSleep);
    EXPECT_EQ(1U, valueOf(record.incompletePdelay));
}

TEST_F(PdelayFollowUp, GoesOnWhenTheTransmitTimeComesMeanwhile) {
    PTPMsgPathDelayReq message(0, kPort);
    request(message, 0);
    respond(1, 5000, 2000);
    platform().sleeps = {[] { clockItemOf(kPortKey).t1.ns = 1000; }};
    platform().capabilities = {{}};
    printedBy([&] { EXPECT_EQ(1U, followUp(1, 5400)); });
    EXPECT_EQ(0U, valueOf(record.incompletePdelay));
    EXPECT_EQ(450, clockItemOf(kPortKey).measuredDelay);
}

}  // namespace
