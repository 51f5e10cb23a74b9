#include <gtest/gtest.h>

#include <cstring>
#include <optional>

#include "api/DaemonState.h"
#include "api/InterfaceDataManager.h"
#include "tests/support/Daemon.h"
#include "tests/support/Hex.h"
#include "tests/support/KernelSeam.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/Vectors.h"
#include "timebase/osipc.h"

namespace {

struct Outputs {
    unsigned long long seconds = 1;
    unsigned int nanoseconds = 1;
    unsigned short sequenceId = 1;
    unsigned int pathDelay = 1, rejectedSyncs = 1, timeBaseStatus = 1;
    TSynSubTlvReport report{77, {1, 2, 3, 4}, {5, 6, 7, 8}};
    TSynUserData userData{};
    int result = 1;

    void read() {
        result =
            ZebEthTSynInterface_GetCurrentTime(0, &seconds, &nanoseconds, &sequenceId, &pathDelay,
                                               &rejectedSyncs, &timeBaseStatus, &report, &userData);
    }
};

/** An instance that counts as running and publishes a record of the test's own. */
struct RunningRecord {
    explicit RunningRecord(int propagationDelay = 0) {
        DbgTraceLevel = 0;
        TSynInstanceConfig config = slaveConfig();
        config.PropagationDelay = propagationDelay;
        block = &InterfaceDataManager::getInstance(&config)->block;
        OSipc::map["tsm0"] = &record;
        runningState = 1;
    }
    ~RunningRecord() { OSipc::map.clear(); }

    gPtpTimeDataStruct record{};
    InstanceBlock* block;
};

void expectOutputs(const nlohmann::json& expected, const Outputs& outputs) {
    EXPECT_EQ(toU64(expected["seconds"]), outputs.seconds);
    EXPECT_EQ(expected["nanoseconds"].get<unsigned>(), outputs.nanoseconds);
    EXPECT_EQ(expected["return"].get<int>(), outputs.result);
    EXPECT_EQ(expected["word"].get<int>(), outputs.sequenceId);
    EXPECT_EQ(expected["pathDelay"].get<unsigned>(), outputs.pathDelay);
    EXPECT_EQ(expected["statusWord"].get<unsigned>(), outputs.rejectedSyncs);
}

TEST(CurrentTime, FollowsTheRecordToTheNanosecond) {
    for (const auto& vector : vectors("GetCurrentTime")) {
        SCOPED_TRACE(vector["name"].get<std::string>());
        RunningRecord running(vector["PropagationDelay"].get<int>());
        const Bytes image = fromHex(vector["record"].get<std::string>());
        std::memcpy(&running.record, image.data(), sizeof running.record);
        KernelSeam kernel;
        kernel.fixRealtime(toS64(vector["CLOCK_REALTIME"]));
        Outputs outputs;
        outputs.read();
        expectOutputs(vector["out"], outputs);
        EXPECT_EQ(outputs.pathDelay, running.block->lastPathDelay);
    }
}

TEST(CurrentTime, AFixedDelayReplacesTheMeasuredOneInTheRecord) {
    RunningRecord running(-1);
    running.record.linkDelay = 575;
    Outputs outputs;
    outputs.read();
    EXPECT_EQ(0xFFFFFFFFU, outputs.pathDelay);
    EXPECT_EQ(-1, running.record.linkDelay);
}

TEST(CurrentTime, EveryOutputMayBeLeftOut) {
    RunningRecord running;
    running.record.linkDelay = 575;
    EXPECT_EQ(0, ZebEthTSynInterface_GetCurrentTime(0, nullptr, nullptr, nullptr, nullptr, nullptr,
                                                    nullptr, nullptr, nullptr));
    EXPECT_EQ(575U, running.block->lastPathDelay);
}

TEST(CurrentTime, HandsOutTheTimeBaseStatus) {
    RunningRecord running;
    running.block->timeBaseStatus = 0x0C;
    Outputs outputs;
    outputs.read();
    EXPECT_EQ(0x0CU, outputs.timeBaseStatus);
}

TEST(CurrentTime, ReportsSubTlvsAsFarAsTheCountReaches) {
    RunningRecord running;
    for (unsigned i = 0; i < 4; ++i) {
        running.block->subTlvCrcKinds[i] = 0x10 + i;
        running.block->subTlvValid[i] = 1;
    }
    for (const unsigned count : {0U, 1U, 2U, 3U, 4U, 6U, 0xFFFFFFFFU}) {
        running.block->subTlvCount = count;
        Outputs outputs;
        outputs.read();
        EXPECT_EQ(count, outputs.report.count);
        for (unsigned i = 0; i < 4; ++i) {
            EXPECT_EQ(i < count ? 0x10 + i : i + 1, outputs.report.crcKinds[i]);
            EXPECT_EQ(i < count ? 1U : i + 5, outputs.report.valid[i]);
        }
    }
}

TEST(CurrentTime, ReportsAtMostThreeUserBytes) {
    RunningRecord running;
    for (const auto& vector : vectors("user_data_report")) {
        running.block->userDataLength = vector["storedLength"].get<unsigned char>();
        const Bytes bytes = fromHex(vector["storedBytes"].get<std::string>());
        std::copy(bytes.begin(), bytes.end(), running.block->userBytes);
        Outputs outputs;
        outputs.read();
        EXPECT_EQ(vector["record"].get<std::string>(),
                  toHex(reinterpret_cast<const unsigned char*>(&outputs.userData), 4));
    }
}

void expectNotRunning(const Outputs& outputs) {
    const auto& expected = vectors("GetCurrentTime_not_running")[0];
    EXPECT_EQ(toU64(expected["seconds"]), outputs.seconds);
    EXPECT_EQ(expected["nanoseconds"].get<unsigned>(), outputs.nanoseconds);
    EXPECT_EQ(expected["word"].get<int>(), outputs.sequenceId);
    EXPECT_EQ(expected["pathDelay"].get<unsigned>(), outputs.pathDelay);
    EXPECT_EQ(expected["statusWord"].get<unsigned>(), outputs.rejectedSyncs);
    EXPECT_EQ(expected["timeBaseStatus"].get<unsigned>(), outputs.timeBaseStatus);
    EXPECT_EQ(expected["return"].get<int>(), outputs.result);
    EXPECT_EQ(expected["userData"].get<std::string>(),
              toHex(reinterpret_cast<const unsigned char*>(&outputs.userData), 4));
    const Outputs untouched;
    EXPECT_EQ(0, std::memcmp(&untouched.report, &outputs.report, sizeof outputs.report));
}

TEST(CurrentTime, IsAllOnesBeforeStart) {
    Outputs outputs;
    outputs.userData = {2, {1, 2, 3}};
    outputs.read();
    expectNotRunning(outputs);
}

TEST(CurrentTime, BeforeStartNothingNeedsToBeWanted) {
    EXPECT_EQ(0, ZebEthTSynInterface_GetCurrentTime(0, nullptr, nullptr, nullptr, nullptr, nullptr,
                                                    nullptr, nullptr, nullptr));
}

TEST(CurrentTime, IsAllOnesWithoutASharedRecord) {
    RunningRecord running;
    OSipc::map.clear();
    const StdoutCapture output;
    const StdoutCapture errors(2);
    shm_name = "";
    Outputs outputs;
    outputs.read();
    expectNotRunning(outputs);
    EXPECT_EQ(0U, errors.text().find("shm_open: "));
}

}  // namespace
