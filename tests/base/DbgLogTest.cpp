#include "base/DbgLog.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <thread>

#include "tests/support/KernelSeam.h"
#include "tests/support/StdoutCapture.h"

namespace {

constexpr const char* kLogSource = "base/DbgLogTest.cpp";

TEST(DbgLog, TraceLevelStartsAtFour) {
    EXPECT_EQ(4, DbgTraceLevel);
}

TEST(DbgLog, LevelNamesStandInOrder) {
    const char* const names[] = {"DISABLED", "DEACTIVATED", "ALWAYS",  "INFO", "DEBUG",
                                 "NOTICE",   "ALERT",       "WARNING", "ERROR"};
    for (int level = 0; level < 9; ++level) {
        EXPECT_STREQ(names[level], dbgMsgType[level]);
    }
}

TEST(DbgLog, PrefixIsLevelTimeFileLineAndFunction) {
    const StdoutCapture output;
    KernelSeam kernel;
    kernel.fixRealtime(1700000000123456789);
    ZEB_LOG_AT(kAlways, 1297, "arg: %s\n", "eth1");
    EXPECT_EQ("[ALWAYS] [1700000000.123456789] <base/DbgLogTest.cpp/1297->TestBody()>arg: eth1\n",
              output.text());
}

TEST(DbgLog, NanosecondsAlwaysHaveNineDigits) {
    const StdoutCapture output;
    KernelSeam kernel;
    kernel.fixRealtime(1700000000000000005);
    ZEB_LOG(kInfo, "x\n");
    EXPECT_EQ(0U, output.text().find("[INFO] [1700000000.000000005] <"));
}

TEST(DbgLog, SecondsAreSigned) {
    const StdoutCapture output;
    KernelSeam kernel;
    kernel.fixRealtime(-1000000000);
    ZEB_LOG(kInfo, "x\n");
    EXPECT_EQ(0U, output.text().find("[INFO] [-1.000000000] <"));
}

TEST(DbgLog, LineNumberIsTheCallSite) {
    const StdoutCapture output;
    const int line = __LINE__ + 1;
    ZEB_LOG(kDebug, "here\n");
    ASSERT_EQ(1U, output.lines().size());
    EXPECT_EQ(line, output.lines()[0].line);
    EXPECT_EQ("DEBUG", output.lines()[0].level);
}

TEST(DbgLog, ClockIsReadOncePerLineJustBeforeIt) {
    const StdoutCapture output;
    int readings = 0;
    KernelSeam kernel;
    kernel.clockGettime = [&](clockid_t id, timespec*) -> std::optional<int> {
        readings += id == CLOCK_REALTIME ? 1 : 0;
        return std::nullopt;
    };
    ZEB_LOG(kInfo, "one\n");
    ZEB_LOG(kInfo, "two\n");
    EXPECT_EQ(2, readings);
}

TEST(DbgLog, ValuesAreThereBeforeTheClockIsRead) {
    const StdoutCapture output;
    bool clockRead = false;
    KernelSeam kernel;
    kernel.clockGettime = [&](clockid_t id, timespec*) -> std::optional<int> {
        clockRead = clockRead || id == CLOCK_REALTIME;
        return std::nullopt;
    };
    const auto value = [&] { return clockRead ? "late" : "early"; };
    ZEB_LOG(kInfo, "%s\n", value());
    EXPECT_EQ("early", output.lines().at(0).text);
}

TEST(DbgLog, EveryLevelPrintsAtEveryTraceLevel) {
    const StdoutCapture output;
    for (const int traceLevel : {-1, 0, 1, 2, 3, 4, 255}) {
        DbgTraceLevel = traceLevel;
        for (const LogLevel level : {kAlways, kInfo, kDebug, kError}) {
            ZEB_LOG(level, "x\n");
        }
    }
    EXPECT_EQ(28U, output.lines().size());
}

TEST(DbgLog, HostReplacesALevelName) {
    const StdoutCapture output;
    dbgMsgType[8] = "Fehler";
    ZEB_LOG(kError, "x\n");
    EXPECT_EQ("Fehler", output.lines().at(0).level);
}

TEST(DbgLog, LinesAreFlushedOneByOne) {
    const StdoutCapture output;
    ZEB_LOG(kInfo, "flushed \n");
    EXPECT_NE(std::string::npos, output.writtenText().find(">flushed \n"));
}

void logManyLines() {
    for (int i = 0; i < 250; ++i) {
        ZEB_LOG(kInfo, "%s %d\n", "a text that is long enough to be torn", i);
    }
}

TEST(DbgLog, LinesOfSeveralThreadsStayWhole) {
    const StdoutCapture output;
    std::thread threads[4];
    for (std::thread& thread : threads) {
        thread = std::thread(logManyLines);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(1000U, output.lines().size());
    EXPECT_EQ(1000, output.count("\n"));
}

TEST(DbgLog, AFullDeviceIsIgnored) {
    const int kept = dup(1);
    const int full = open("/dev/full", O_WRONLY);
    ASSERT_EQ(1, dup2(full, 1));
    ZEB_LOG(kError, "lost\n");
    dup2(kept, 1);
    const StdoutCapture output;
    ZEB_LOG(kError, "kept\n");
    EXPECT_EQ(1, output.count(">kept\n"));
}

TEST(DbgLog, TraceLineHasNoPrefixAndNoFlush) {
    const StdoutCapture output;
    traceLine("getMsgNumericType", 113);
    EXPECT_EQ("", output.writtenText());
    EXPECT_EQ("getMsgNumericType  trace line 113\n", output.text());
}

TEST(DbgLogDeathTest, FatalTraceLineReachesAPipeAndAborts) {
    EXPECT_EXIT(
        {
            dup2(2, 1);
            fatalTraceLine("InterfaceDataManager", 44);
        },
        testing::KilledBySignal(SIGABRT), "^InterfaceDataManager  trace line 44\n");
}

TEST(DbgLog, RoleMarkedLineBeginsWithTheRoleCharacter) {
    const StdoutCapture output;
    printRoleMarked("text");
    MasterOrSlave = '2';
    printRoleMarked("text");
    EXPECT_EQ("?text\n2text\n", output.text());
}

TEST(DbgLog, FaultsAreReportedAboveTraceLevelZero) {
    const StdoutCapture output;
    for (const int level : {-1, 0}) {
        DbgTraceLevel = level;
        reportFault("%s", "silent");
    }
    EXPECT_EQ("", output.text());
    DbgTraceLevel = 1;
    reportFault("@%s(%d): text", "name", 5);
    EXPECT_EQ("?@name(5): text\n", output.text());
}

TEST(DbgLog, AReportIsCutTo255Characters) {
    const StdoutCapture output;
    DbgTraceLevel = 1;
    reportFault("%s", std::string(300, 'x').c_str());
    EXPECT_EQ("?" + std::string(255, 'x') + "\n", output.text());
}

}  // namespace
