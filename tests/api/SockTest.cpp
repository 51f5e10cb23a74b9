#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

#include "api/DaemonState.h"
#include "api/InterfaceDataManager.h"
#include "api/MessagePumps.h"
#include "api/StackEnvironment.h"
#include "tests/api/QuickKernel.h"
#include "tests/support/Daemon.h"
#include "tests/support/StdoutCapture.h"

namespace {

std::string sockNow() {
    const char* const value = getenv("SOCK");
    return value != nullptr ? value : "(unset)";
}

/** Runs the main thread's body in this thread, for an interface that is not there. */
void runToTheEnd() {
    DbgTraceLevel = 0;
    const TSynInstanceConfig config = masterConfig("absent0");
    MainEntryPointSharedLibrary(&InterfaceDataManager::getInstance(&config)->block);
}

class RoleOfSock : public testing::TestWithParam<bool> {};

TEST_P(RoleOfSock, GivesTheHostsValueBackWhenItsSocketsAreOpen) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    setenv("SOCK", "before", 1);
    QuickKernel kernel;
    // Without pumps, which would do the same, the role comes to its end at once.
    std::atomic<int> creations{0};
    kernel.pthreadCreate = [&]() -> std::optional<int> {
        return creations++ > 0 ? std::optional<int>(EAGAIN) : std::nullopt;
    };
    std::string atTheEnd;
    kernel.usleep = [&](useconds_t) {
        if (!kernel.isHost() && runningState != 0) {
            atTheEnd = sockNow();
        }
        return std::optional<int>(0);
    };
    const TSynInstanceConfig config = GetParam() ? masterConfig() : slaveConfig();
    DbgTraceLevel = 0;
    ZebEthTSynInterface_Create(&config);
    ZebEthTSynInterface_Start(0, nullptr, nullptr);
    EXPECT_TRUE(output.await(">*** Leaving MainEntryPointSharedLibrary("));
    EXPECT_EQ("before", atTheEnd);
}

INSTANTIATE_TEST_SUITE_P(Sock, RoleOfSock, testing::Bool());

TEST(Sock, OfAFailedRoleIsGivenBackAfterItsEnd) {
    const Sandbox sandbox;
    const StdoutCapture output;
    setenv("SOCK", "before", 1);
    QuickKernel kernel;
    std::string meanwhile;
    kernel.usleep = [&](useconds_t) {
        meanwhile = sockNow();
        return std::optional<int>(0);
    };
    runToTheEnd();
    EXPECT_EQ("stack0", meanwhile);
    EXPECT_EQ("before", sockNow());
}

TEST(Sock, OfASecondRunIsThatOfTheSecondRun) {
    const Sandbox sandbox;
    const StdoutCapture output;
    const QuickKernel kernel;
    setenv("SOCK", "first", 1);
    runToTheEnd();
    setenv("SOCK", "second", 1);
    runToTheEnd();
    EXPECT_EQ("second", sockNow());
    unsetenv("SOCK");
    runToTheEnd();
    EXPECT_EQ("stack0", sockNow());
}

TEST(Sock, IsCopiedWhenItIsFound) {
    char assignment[] = "SOCK=before";
    putenv(assignment);
    stack_environment::enterRun("stack0");
    assignment[5] = 'X';
    stack_environment::restore();
    EXPECT_EQ("before", sockNow());
}

TEST(Sock, IsLeftAloneByARestoreWithoutARun) {
    setenv("SOCK", "host", 1);
    stack_environment::restore();
    EXPECT_EQ("host", sockNow());
}

class Message final : public PTPMessage {
public:
    int getMsgNumericType() override { return 5; }
    unsigned int processIncoming() override { return 0; }
};

TEST(Sock, IsGivenBackByEveryOutputPump) {
    const StdoutCapture output;
    setenv("SOCK", "before", 1);
    stack_environment::enterRun("stack0");
    runningState = 1;
    Message message;
    OutputPumpRecord record{nullptr, &message, &cvout, 1000};
    pthread_t pump{};
    pthread_create(&pump, nullptr, OutputThreader, &record);
    ASSERT_TRUE(output.await(">Unknown message ...\n"));
    EXPECT_EQ("before", sockNow());
    pthread_cancel(pump);
    pthread_join(pump, nullptr);
}

}  // namespace
