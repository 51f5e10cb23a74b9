#include "api/DaemonThreads.h"

#include <gmock/gmock.h>
#include <net/if.h>

#include <algorithm>
#include <cstdlib>
#include <tuple>

#include "api/DaemonState.h"
#include "api/Roles.h"
#include "base/DbgLog.h"
#include "tests/support/Daemon.h"
#include "tests/support/KernelSeam.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/Vectors.h"
#include "timebase/osipc.h"

namespace {

using testing::ElementsAre;
using testing::MatchesRegex;
using Texts = std::vector<std::string>;

/** Texts of the log without those that the pumps add at moments of their own. */
Texts startUpTexts(const StdoutCapture& output) {
    Texts texts = output.texts();
    texts.erase(std::remove_if(texts.begin(), texts.end(),
                               [](const std::string& text) {
                                   return text.rfind("shm_name.c_str(): ", 0) == 0 ||
                                          text.rfind("Wrong configuration TxMode ", 0) == 0;
                               }),
                texts.end());
    return texts;
}

const char* const kBanner =
    "Velto daemon \\[libZebEthTimeSynDaemon.so\\] daemon created on "
    "[0-9][0-9]\\.[0-9][0-9]\\.[0-9][0-9][0-9][0-9] at [0-9][0-9]:[0-9][0-9]:[0-9][0-9], "
    "DbgTraceLevel=0";

TEST(StartUp, AMasterLogsItsStepsInOrder) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const RunningDaemon daemon(masterConfig(), RunningDaemon::kMasterThreads);
    ASSERT_TRUE(output.await("tdata_m -> idelay: 1000\n"));
    const std::string index = std::to_string(if_nametoindex("tsm0"));
    EXPECT_THAT(startUpTexts(output),
                ElementsAre("Creating instance for interface: tsm0 ...",
                            "Creating and starting threads ...", MatchesRegex(kBanner),
                            "Params: stack0 tsm0 -T -Xp", "Interface: tsm0", "Argument[1]:tsm0 ",
                            "Creating network service ...", "Socket fd uif.s: 0 ...",
                            "Enable I210 Timestamping on interface 'tsm0'",
                            "Binding to interface " + index + " ...", "enabled: 1 optlen: 4",
                            MatchesRegex("Socket fd uif.s: [0-9]+ \\.\\.\\."),
                            "setsockopt() returned: 0 ...", "arg: tsm0",
                            "Starting as Master ... interface=tsm0",
                            MatchesRegex("system time is: [0-9]+\\.[0-9]+ "),
                            MatchesRegex("time is set to: [0-9]+"), "Port index: " + index,
                            "tdata_m -> idelay: 125", "EnableAutosarExtensions: 0 ",
                            "PropagationDelay: 0 ", "tdata_m -> idelay: 1000"));
    EXPECT_TRUE(output.await("instance()>shm_name.c_str(): /tsm0\n"));
}

TEST(StartUp, ASlaveLogsItsStepsInOrder) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const RunningDaemon daemon(slaveConfig(), RunningDaemon::kSlaveThreads);
    ASSERT_TRUE(output.await("tdata -> idelay: 1000\n"));
    const std::string index = std::to_string(if_nametoindex("tsm0"));
    EXPECT_THAT(
        startUpTexts(output),
        ElementsAre(
            "Creating instance for interface: tsm0 ...", "Creating and starting threads ...",
            MatchesRegex(kBanner), "Params: stack0 tsm0 -L -Xp", "Interface: tsm0",
            "Argument[1]:tsm0 ", "Creating network service ...", "Socket fd uif.s: 0 ...",
            "Enable I210 Timestamping on interface 'tsm0'",
            "Binding to interface " + index + " ...", "enabled: 1 optlen: 4",
            MatchesRegex("Socket fd uif.s: [0-9]+ \\.\\.\\."), "setsockopt() returned: 0 ...",
            MatchesRegex("SlaveThread\\([0-9]+\\): Starting as slave ... interface=tsm0"),
            "Port index: " + index, "PropagationDelay: 0", "tdata -> idelay: 1000"));
}

TEST(StartUp, LinesCarryTheirLevels) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const RunningDaemon daemon(masterConfig(), RunningDaemon::kMasterThreads);
    ASSERT_TRUE(output.await("tdata_m -> idelay: 1000\n"));
    for (const LogLine& line : output.lines()) {
        const bool debug = line.text.rfind("Port index", 0) == 0 ||
                           line.text.rfind("EnableAutosar", 0) == 0 ||
                           line.text.rfind("PropagationDelay", 0) == 0;
        if (debug || line.function == "MasterThread") {
            EXPECT_EQ(debug ? "DEBUG" : "ALWAYS", line.level) << line.text;
        }
    }
}

TEST(StartUp, AMasterSetsItsClockToSystemTime) {
    const StdoutCapture output;
    const CardSandbox sandbox("tsm0", "phc=0 offset_ns=1000000000000000");
    const RunningDaemon daemon(masterConfig(), RunningDaemon::kMasterThreads);
    unsigned long long seconds = 0;
    EXPECT_EQ(0, ZebEthTSynInterface_GetMasterTime(0, &seconds, nullptr));
    EXPECT_NEAR(static_cast<double>(time(nullptr)), static_cast<double>(seconds), 2.0);
}

TEST(StartUp, ASlaveLeavesItsClockAlone) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    KernelSeam kernel;
    int settings = 0;
    kernel.clockSettime = [&](clockid_t, const timespec*) {
        ++settings;
        return 0;
    };
    const RunningDaemon daemon(slaveConfig(), RunningDaemon::kSlaveThreads);
    EXPECT_EQ(0, settings);
}

TEST(StartUp, NamesAndRoleAreVisibleToTheHost) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const RunningDaemon daemon(slaveConfig(), RunningDaemon::kSlaveThreads);
    EXPECT_EQ("stack0", EthStackIdent);
    EXPECT_EQ("tsm0", netifname);
    EXPECT_EQ("stack0/dev/bpf", devname);
    EXPECT_EQ("/tsm0", shm_name);
    EXPECT_EQ('2', MasterOrSlave);
    EXPECT_EQ(1, runningState);
    EXPECT_EQ(0U, threadCount);
}

TEST(StartUp, ASlaveWithAFixedDelayHasNoRequestSender) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    TSynInstanceConfig config = slaveConfig();
    config.PropagationDelay = 1500;
    const RunningDaemon daemon(config, 2);
    EXPECT_TRUE(output.await("PropagationDelay: 1500\n"));
    EXPECT_EQ((Texts{"TSyn_Main", "TSyn_SInp_tsm0"}), daemonThreads());
    EXPECT_EQ(0, output.count("tdata -> idelay"));
}

/** Vector number and whether the role is master. */
class OfVectorAndRole : public testing::TestWithParam<std::tuple<std::size_t, bool>> {
protected:
    std::size_t index() const { return std::get<0>(GetParam()); }
    bool isMaster() const { return std::get<1>(GetParam()); }
};

class ThreadNames : public OfVectorAndRole {};

TEST_P(ThreadNames, AreCutToFifteenCharacters) {
    const auto& vector = vectors("thread_names")[index()];
    const std::string name = vector["ifName"].get<std::string>();
    const Texts all = vector["names"].get<Texts>();
    Texts expected = isMaster() ? Texts{all.begin(), all.begin() + 3} : Texts{all[3], all[4]};
    expected.push_back("TSyn_Main");
    std::sort(expected.begin(), expected.end());
    const StdoutCapture output;
    const CardSandbox sandbox(name);
    const RunningDaemon daemon(isMaster() ? masterConfig(name) : slaveConfig(name),
                               expected.size());
    EXPECT_TRUE(eventually([&] { return daemonThreads() == expected; }));
}

INSTANTIATE_TEST_SUITE_P(
    StartUp, ThreadNames,
    testing::Combine(testing::Range<std::size_t>(0, vectors("thread_names").size()),
                     testing::Bool()));

class SenderPeriod : public OfVectorAndRole {};

TEST_P(SenderPeriod, IsTheIntervalInWholeMilliseconds) {
    const auto& vector = vectors("idelay")[index()];
    TSynInstanceConfig config = isMaster() ? masterConfig() : slaveConfig();
    config.syncInterval = vector["interval"].get<double>();
    const StdoutCapture output;
    const CardSandbox sandbox;
    const RunningDaemon daemon(
        config, isMaster() ? RunningDaemon::kMasterThreads : RunningDaemon::kSlaveThreads);
    const int period = vector[isMaster() ? "sync" : "pdelay"].get<int>();
    EXPECT_TRUE(output.await(std::string(isMaster() ? ">tdata_m" : ">tdata") +
                             " -> idelay: " + std::to_string(period) + "\n"));
}

INSTANTIATE_TEST_SUITE_P(StartUp, SenderPeriod,
                         testing::Combine(testing::Range<std::size_t>(0, vectors("idelay").size()),
                                          testing::Bool()));

TEST(StartUp, SockNamesTheStackWhileTheSocketIsOpened) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    setenv("SOCK", "before", 1);
    std::string meanwhile;
    KernelSeam kernel;
    kernel.socket = [&](int domain, int, int) -> std::optional<int> {
        if (domain == AF_PACKET) {
            meanwhile = getenv("SOCK");
        }
        return std::nullopt;
    };
    const RunningDaemon daemon(masterConfig(), RunningDaemon::kMasterThreads);
    EXPECT_EQ("stack0", meanwhile);
    EXPECT_TRUE(eventually([] {
        const char* const now = getenv("SOCK");
        return now != nullptr && std::string(now) == "before";
    }));
}

TEST(StartUp, SockStaysAtTheStackWhenThereWasNone) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    unsetenv("SOCK");
    const RunningDaemon daemon(slaveConfig(), RunningDaemon::kSlaveThreads);
    EXPECT_STREQ("stack0", getenv("SOCK"));
}

TEST(RoleThreads, ReportAMissingName) {
    const Sandbox sandbox;
    const StdoutCapture output;
    DbgTraceLevel = 0;
    MasterThread(nullptr);
    SlaveThread(nullptr);
    EXPECT_EQ(2, output.count(">Parameter arg is invalid (NULL) ... \n"));
    EXPECT_EQ('?', MasterOrSlave);
}

TEST(UserSignals, AreBlockedAndASecondPasses) {
    KernelSeam kernel;
    useconds_t slept = 0;
    kernel.usleep = [&](useconds_t microseconds) {
        slept = microseconds;
        return 0;
    };
    DisableUsrSignals();
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    EXPECT_EQ(1, sigismember(&blocked, SIGUSR1));
    EXPECT_EQ(0, sigismember(&blocked, SIGUSR2));
    EXPECT_EQ(1000000U, slept);
}

TEST(UserSignals, AFailureIsReportedWithoutWaiting) {
    const StdoutCapture errors(2);
    KernelSeam kernel;
    bool slept = false;
    kernel.pthreadSigmask = [] { return EINVAL; };
    kernel.usleep = [&](useconds_t) {
        slept = true;
        return 0;
    };
    DisableUsrSignals();
    EXPECT_FALSE(slept);
    EXPECT_EQ("Failed to block SIGUSR1\n", errors.text());
}

}  // namespace
