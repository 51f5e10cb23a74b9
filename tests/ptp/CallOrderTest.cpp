#include "ptp/ReferenceRecord.h"
#include "tests/ptp/PdelayExchange.h"
#include "tests/support/Packed.h"
#include "timebase/osipc.h"

namespace {

using Calls = std::vector<PlatformCall>;

/** What other threads and the peer can see while a handler is at work. */
class CallOrder : public PdelayExchange {
protected:
    /** Has the platform's calls noted from now on. */
    void note() {
        platform().onCall = [this](PlatformCall call) { calls.push_back(call); };
    }

    Calls calls;
};

TEST_F(CallOrder, AMasterReadsThePhcBeforeTheCrossTimestamp) {
    block.cfg.TxMode = 1;
    PTPMsgSync sync(0, kPort);
    sync.service = &service;
    platform().answersEverything = true;
    note();
    printedBy([&] { sync.processOutgoing(); });
    EXPECT_EQ((Calls{PlatformCall::kTransmit, PlatformCall::kTransmit, PlatformCall::kPhcTime,
                     PlatformCall::kCapabilities}),
              calls);
}

TEST_F(CallOrder, TheSequenceIdIsPublishedBeforeItsSyncLeaves) {
    block.cfg.TxMode = 1;
    PTPMsgSync sync(0, kPort);
    sync.service = &service;
    platform().answersEverything = true;
    std::vector<unsigned int> published;
    platform().onCall = [&](PlatformCall) { published.push_back(valueOf(record.sequenceId)); };
    printedBy([&] { sync.processOutgoing(); });
    EXPECT_EQ(1U, published.at(0));
}

TEST_F(CallOrder, NoTimeOfTheLastExchangeIsLeftWhenARequestLeaves) {
    ClockItemMembersType& item = clockItemOf(kPortKey);
    item.t1.ns = item.t2.ns = item.t3.ns = item.t4.ns = 9;
    unsigned long long left = 9;
    platform().onCall = [&](PlatformCall call) {
        if (call == PlatformCall::kTransmit) {
            left = item.t1.ns + item.t2.ns + item.t3.ns + item.t4.ns;
            EXPECT_EQ(1U, item.pdelaySeqNo);
        }
    };
    PTPMsgPathDelayReq message(0, kPort);
    request(message, 1000);
    EXPECT_EQ(0U, left);
}

TEST_F(CallOrder, TheClocksAreReadBeforeTheTimeBaseIsFitted) {
    unsigned long long fitted = 0;
    PTPMsgPathDelayReq message(0, kPort);
    platform().onCall = [&](PlatformCall call) {
        if (call == PlatformCall::kCapabilities) {
            fitted = clockItemOf(kPortKey).responseTimes.entries[0].ns;
        }
    };
    exchange(message, {1000000000000, 5000000000500, 5000000100500, 1000000101000});
    EXPECT_EQ(0U, fitted);
    EXPECT_EQ(1000000101000U, valueOf(clockItemOf(kPortKey).responseTimes.entries[0].ns));
}

TEST_F(CallOrder, AReaderNeverMeetsATimeOfTheNewSyncWithTheOffsetOfTheLast) {
    clockItemOf(kPortKey).initialised = 1;
    handleWithExtTime(syncMessage(1), 5000);
    platform().capabilities = {{}};
    std::string seen;
    platform().onCall = [&](PlatformCall) { seen = image(record); };
    const std::string before = image(record);
    printedBy([&] { handleWithExtTime(followUpMessage(1, 4000)); });
    EXPECT_EQ(before, seen);
    EXPECT_NE(before, image(record));
}

TEST_F(CallOrder, ASyncIsNotedOnceItsCrossTimestampIsOver) {
    platform().onCall = [this](PlatformCall) {
        EXPECT_EQ(0U, valueOf(record.acceptedSync));
        EXPECT_EQ(-1, clockItems.at(kPortKey).syncSequenceId);
        EXPECT_EQ(1000U, valueOf(clockItems.at(kPortKey).syncReceiveTime.ns));
    };
    handleWithExtTime(syncMessage(1), 1000);
    EXPECT_EQ(1U, valueOf(record.acceptedSync));
}

/** Nothing uses the reading, but its time is part of the handling time, after which the system
 *  offset is measured. */
class CrossTimestampPause : public CallOrder {
protected:
    /** What the port and the record hold after a pair whose readings were these. */
    std::string stateAfter(const ptp_ext_time_t& reading) {
        clockItems.clear();
        note();
        calls.clear();
        platform().extTimes = {reading, reading};
        EXPECT_EQ(1U, handle(syncMessage(1), 1000));
        EXPECT_EQ(Calls{PlatformCall::kExtTime}, calls);
        EXPECT_EQ(1U, handle(followUpMessage(1, 900)));
        EXPECT_EQ((Calls{PlatformCall::kExtTime, PlatformCall::kExtTime}), calls);
        ClockItemMembersType item = clockItems.at(kPortKey);
        item.arrivalMark = 0;
        return image(record) + std::string(reinterpret_cast<const char*>(&item), sizeof item);
    }
};

TEST_F(CrossTimestampPause, IsTakenOnEverySyncAndOnEveryFollowUpAlthoughNothingUsesIt) {
    const std::string state = stateAfter({111, 222});
    record.acceptedSync = 0;
    EXPECT_EQ(state, stateAfter({333, 444}));
}

TEST_F(CrossTimestampPause, IsTakenOnAFollowUpThatIsNotUsed) {
    note();
    handleWithExtTime(followUpMessage(1, 900));
    EXPECT_EQ(Calls{PlatformCall::kExtTime}, calls);
}

TEST_F(CrossTimestampPause, IsNotTakenOnARefusedSync) {
    note();
    block.cfg.Domain = 1;
    handle(syncMessage(1), 1000);
    block.cfg.role = 1;
    handle(syncMessage(1), 1000);
    EXPECT_EQ(Calls{}, calls);
}

/** A host hands messages over before it has made the instance. */
class WithoutInstanceDeathTest : public Handlers {
protected:
    WithoutInstanceDeathTest() {
        OSipc::map.clear();
        DbgTraceLevel = 3;
    }

    ~WithoutInstanceDeathTest() override { DbgTraceLevel = 0; }

    /** Ends the process with the first thing that is asked for. */
    static void run(PTPMessage& message) {
        dup2(STDERR_FILENO, STDOUT_FILENO);
        InterfaceDataManager::m_pInstance = nullptr;
        message.processIncoming();
    }
};

TEST_F(WithoutInstanceDeathTest, AFollowUpAsksForItFirst) {
    const std::unique_ptr<PTPMessage> message = received(followUpMessage(1, 5000));
    EXPECT_EXIT(run(*message), ::testing::KilledBySignal(SIGABRT),
                "^InterfaceDataManager  trace line 44\n");
}

TEST_F(WithoutInstanceDeathTest, ASyncAsksForItFirst) {
    const std::unique_ptr<PTPMessage> message = received(syncMessage(1));
    EXPECT_EXIT(run(*message), ::testing::KilledBySignal(SIGABRT),
                "^InterfaceDataManager  trace line 44\n");
}

}  // namespace
