#include <gtest/gtest.h>

#include <algorithm>

#include "api/Roles.h"
#include "tests/api/QuickKernel.h"
#include "tests/support/Daemon.h"
#include "tests/support/StdoutCapture.h"

namespace {

/** How log readers know a line. */
struct Known {
    const char* begin;
    const char* level;
    const char* function;
};

/** Every line of a role's start, of either role where they share it. */
const std::vector<Known> kMasterLines{
    {"Creating instance for interface: ", "ALWAYS", "ZebEthTSynInterface_Create"},
    {"Creating and starting threads ...", "ALWAYS", "ZebEthTSynInterface_Start"},
    {"Velto daemon ", "ALWAYS", "MainEntryPointSharedLibrary"},
    {"Params: ", "ALWAYS", "MainEntryPointSharedLibrary"},
    {"Interface: ", "ALWAYS", "MainEntryPointSharedLibrary"},
    {"Argument[1]:", "ALWAYS", "MainEntryPointSharedLibrary"},
    {"arg: ", "ALWAYS", "MasterThread"},
    {"Starting as Master ... ", "ALWAYS", "MasterThread"},
    {"system time is: ", "ALWAYS", "MasterThread"},
    {"time is set to: ", "ALWAYS", "MasterThread"},
    {"Port index: ", "DEBUG", "MasterThread"},
    {"tdata_m -> idelay: 125", "ALWAYS", "MasterThread"},
    {"EnableAutosarExtensions: ", "DEBUG", "MasterThread"},
    {"PropagationDelay: ", "DEBUG", "MasterThread"},
    {"tdata_m -> idelay: 1000", "ALWAYS", "MasterThread"},
};
const std::vector<Known> kSlaveLines{
    {"Creating instance for interface: ", "ALWAYS", "ZebEthTSynInterface_Create"},
    {"Creating and starting threads ...", "ALWAYS", "ZebEthTSynInterface_Start"},
    {"Velto daemon ", "ALWAYS", "MainEntryPointSharedLibrary"},
    {"Params: ", "ALWAYS", "MainEntryPointSharedLibrary"},
    {"Interface: ", "ALWAYS", "MainEntryPointSharedLibrary"},
    {"Argument[1]:", "ALWAYS", "MainEntryPointSharedLibrary"},
    {"SlaveThread(", "ALWAYS", "SlaveThread"},
    {"Port index: ", "DEBUG", "SlaveThread"},
    {"PropagationDelay: ", "DEBUG", "SlaveThread"},
    {"tdata -> idelay: ", "DEBUG", "SlaveThread"},
};

/** Expects just these lines, in this order, under the name of the control functions. */
void expectLines(const StdoutCapture& output, const std::vector<Known>& known) {
    std::vector<LogLine> lines = output.lines();
    lines.erase(std::remove_if(lines.begin(), lines.end(),
                               [](const LogLine& line) {
                                   return line.file != "api/ZebEthTimeSynSupportInterface.cpp";
                               }),
                lines.end());
    ASSERT_EQ(known.size(), lines.size());
    for (std::size_t i = 0; i < lines.size(); ++i) {
        SCOPED_TRACE(lines[i].text);
        EXPECT_EQ(0U, lines[i].text.find(known[i].begin)) << known[i].begin;
        EXPECT_EQ(known[i].level, lines[i].level);
        EXPECT_EQ(known[i].function, lines[i].function);
    }
}

TEST(LogLines, OfAMastersStart) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const QuickKernel kernel;
    const RunningDaemon daemon(masterConfig(), RunningDaemon::kMasterThreads);
    expectLines(output, kMasterLines);
}

TEST(LogLines, OfASlavesStart) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const QuickKernel kernel;
    const RunningDaemon daemon(slaveConfig(), RunningDaemon::kSlaveThreads);
    expectLines(output, kSlaveLines);
}

TEST(LogLines, OfFurtherStartsAndStops) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const QuickKernel kernel;
    const RunningDaemon daemon(slaveConfig(), RunningDaemon::kSlaveThreads);
    ZebEthTSynInterface_Start(0, nullptr, nullptr);
    ZebEthTSynInterface_Stop();
    ZebEthTSynInterface_Start(0, nullptr, nullptr);
    ZebEthTSynInterface_Destroy();
    std::vector<Known> expected = kSlaveLines;
    expected.push_back({"Threads are still running...", "ALWAYS", "ZebEthTSynInterface_Start"});
    expected.push_back({"Stopping threads ...", "ALWAYS", "ZebEthTSynInterface_Stop"});
    expected.push_back({"Restarting threads ...", "ALWAYS", "ZebEthTSynInterface_Start"});
    expected.push_back({"Destroying threads ...", "ALWAYS", "ZebEthTSynInterface_Destroy"});
    expectLines(output, expected);
}

/** The lines from the start of a role that fails on a missing interface. */
std::vector<Known> failedStart(const std::vector<Known>& role, const char* lastLine,
                               const char* function) {
    const auto last = std::find_if(role.begin(), role.end(), [=](const Known& line) {
        return std::string(line.begin) == lastLine;
    });
    std::vector<Known> lines(role.begin(), last + 1);
    lines.push_back({"Error occured due to No such device", "ERROR", function});
    lines.push_back({"*** Leaving MainEntryPointSharedLibrary('*stack0' 'absent0') ***", "ALWAYS",
                     "MainEntryPointSharedLibrary"});
    return lines;
}

class MissingInterface : public testing::TestWithParam<bool> {};

TEST_P(MissingInterface, IsAnErrorOfItsRole) {
    const Sandbox sandbox;
    const StdoutCapture output;
    const QuickKernel kernel;
    DbgTraceLevel = 0;
    const TSynInstanceConfig config = GetParam() ? masterConfig("absent0") : slaveConfig("absent0");
    ZebEthTSynInterface_Create(&config);
    ZebEthTSynInterface_Start(0, nullptr, nullptr);
    ASSERT_TRUE(output.await(">*** Leaving "));
    expectLines(output, GetParam() ? failedStart(kMasterLines, "system time is: ", "MasterThread")
                                   : failedStart(kSlaveLines, "SlaveThread(", "SlaveThread"));
}

INSTANTIATE_TEST_SUITE_P(LogLines, MissingInterface, testing::Bool());

TEST(LogLines, OfRolesWithoutAName) {
    const Sandbox sandbox;
    const StdoutCapture output;
    DbgTraceLevel = 0;
    MasterThread(nullptr);
    SlaveThread(nullptr);
    expectLines(output, {{"Parameter arg is invalid (NULL) ... ", "ERROR", "MasterThread"},
                         {"Parameter arg is invalid (NULL) ... ", "ERROR", "SlaveThread"}});
}

TEST(LogLines, OfRefusedValues) {
    const StdoutCapture output;
    DbgTraceLevel = 0;
    const unsigned char tooLong[] = {4, 0, 0, 0};
    ZebEthTSynInterface_SetUserData(0, tooLong);
    ZebEthTSynInterface_SetTime(0, 1, 0, 0, tooLong);
    ZebEthTSynInterface_SetStatus(0, 2);
    ZebEthTSynInterface_SetTimeBaseStatus(0, 1);
    ZebEthTSynInterface_SetSoftTime(0, ~0ULL, 0, 0);
    expectLines(
        output,
        {{"Wrong user data length ...", "ERROR", "ZebEthTSynInterface_SetUserData"},
         {"Wrong user data length ...", "ERROR", "ZebEthTSynInterface_SetTime"},
         {"Setting Invalid Status :0x2 ... ", "ERROR", "ZebEthTSynInterface_SetStatus"},
         {"Setting Invalid Status :0x1 ... ", "ERROR", "ZebEthTSynInterface_SetTimeBaseStatus"},
         {"Too big time as secons to set ", "ERROR", "ZebEthTSynInterface_SetSoftTime"}});
}

}  // namespace
