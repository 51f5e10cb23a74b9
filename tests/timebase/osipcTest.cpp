#include "timebase/osipc.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <x86intrin.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <thread>

#include "api/DaemonState.h"
#include "base/DbgLog.h"
#include "include/gPtpTimeQuality.h"
#include "tests/support/Hex.h"
#include "tests/support/Sandbox.h"
#include "tests/support/StdoutCapture.h"

namespace {

/** How many of the next calls of a step fail, and why. */
struct Failure {
    int times = 0;
    int error = 0;

    bool strikes() {
        if (times == 0) {
            return false;
        }
        --times;
        errno = error;
        return true;
    }
};

Failure openFailure;
Failure resizeFailure;
Failure mapFailure;
Failure ownerFailure;
std::function<void()> whenOpened;

}  // namespace

extern "C" {
int __real_shm_open(const char* name, int flags, mode_t mode);
int __real_ftruncate(int descriptor, off_t length);
void* __real_mmap(void* address, size_t length, int protection, int flags, int descriptor,
                  off_t offset);

int __wrap_shm_open(const char* name, int flags, mode_t mode) {
    if (whenOpened) {
        whenOpened();
    }
    return openFailure.strikes() ? -1 : __real_shm_open(name, flags, mode);
}

int __wrap_ftruncate(int descriptor, off_t length) {
    return resizeFailure.strikes() ? -1 : __real_ftruncate(descriptor, length);
}

int __real_fchown(int descriptor, uid_t owner, gid_t group);

int __wrap_fchown(int descriptor, uid_t owner, gid_t group) {
    return ownerFailure.strikes() ? -1 : __real_fchown(descriptor, owner, group);
}

void* __wrap_mmap(void* address, size_t length, int protection, int flags, int descriptor,
                  off_t offset) {
    return mapFailure.strikes()
               ? MAP_FAILED
               : __real_mmap(address, length, protection, flags, descriptor, offset);
}
}

namespace {

class SharedSegment : public ::testing::Test {
protected:
    static void SetUpTestSuite() { static const Sandbox sandbox; }

    SharedSegment() {
        DbgTraceLevel = 2;
        shm_name = "/eth1";
        OSipc::map.clear();
        shm_unlink("/eth1");
    }

    ~SharedSegment() override { openFailure = resizeFailure = mapFailure = ownerFailure = {}; }

    /** The segment as other processes see it. */
    static std::vector<unsigned char> segmentBytes() {
        const int descriptor = open("/dev/shm/eth1", O_RDONLY);
        std::vector<unsigned char> bytes(1000);
        const ssize_t count = read(descriptor, bytes.data(), bytes.size());
        close(descriptor);
        bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
        return bytes;
    }

    /** The descriptor that the next opened file gets. */
    static int nextDescriptor() {
        const int next = dup(0);
        close(next);
        return next;
    }

    /** Null is returned and standard error says so. */
    static void expectRefusal(const std::string& message) {
        const StdoutCapture output;
        const StdoutCapture errors(STDERR_FILENO);
        EXPECT_EQ(nullptr, OSipc::instance("eth1"));
        EXPECT_EQ(message, errors.text());
        EXPECT_TRUE(OSipc::map.empty());
    }

    /** Above trace level 2 the second attempt succeeds. */
    static void expectRetry(const std::string& line) {
        DbgTraceLevel = 3;
        const StdoutCapture errors(STDERR_FILENO);
        const StdoutCapture output;
        EXPECT_NE(nullptr, OSipc::instance("eth1"));
        EXPECT_EQ(2, output.count(line));
        EXPECT_EQ(3, output.count("shm_name.c_str(): /eth1\n"));
        EXPECT_EQ("", errors.text());
    }
};

TEST_F(SharedSegment, Has260ZeroBytesThatEveryoneMayReadAndWrite) {
    umask(0077);
    ASSERT_NE(nullptr, OSipc::instance("eth1"));
    EXPECT_EQ(std::string(520, '0'), toHex(segmentBytes()));
    struct stat status {};
    ASSERT_EQ(0, stat("/dev/shm/eth1", &status));
    EXPECT_EQ(0777U, status.st_mode & 0777U);
    EXPECT_EQ(getuid(), status.st_uid);
    EXPECT_EQ(getgid(), status.st_gid);
}

TEST_F(SharedSegment, FileCreationMaskIsPutBack) {
    umask(0027);
    OSipc::instance("eth1");
    EXPECT_EQ(0027U, umask(0022));
}

TEST_F(SharedSegment, RecordLies24BytesIntoIt) {
    gPtpTimeDataStruct* const record = OSipc::instance("eth1");
    std::memset(record, 0xAB, sizeof *record);
    EXPECT_EQ(
        std::string(48, '0') +
            [] {
                std::string filled;
                for (int i = 0; i < 236; ++i) {
                    filled += "ab";
                }
                return filled;
            }(),
        toHex(segmentBytes()));
    EXPECT_EQ(reinterpret_cast<unsigned char*>(record),
              static_cast<unsigned char*>(OSipc::global_master_offset_buffer) + 24);
}

TEST_F(SharedSegment, TheSameNameGetsTheSameRecordUntouched) {
    gPtpTimeDataStruct* const record = OSipc::instance("eth1");
    record->linkDelay = 77;
    const StdoutCapture output;
    EXPECT_EQ(record, OSipc::instance("eth1"));
    EXPECT_EQ(77, record->linkDelay);
    EXPECT_EQ("", output.text());
}

TEST_F(SharedSegment, ASecondNameMapsTheSameBytesAgainAndZeroesThem) {
    gPtpTimeDataStruct* const first = OSipc::instance("eth1");
    first->linkDelay = 77;
    gPtpTimeDataStruct* const second = OSipc::instance("wm0");
    EXPECT_NE(first, second);
    EXPECT_EQ(0, first->linkDelay);
    second->softOffset = 5;
    EXPECT_EQ(5, first->softOffset);
    EXPECT_EQ(2U, OSipc::map.size());
}

gPtpTimeDataStruct leftBehind;
const gPtpTimeDataStruct kNothing{};
const gPtpTimeDataStruct* watched = nullptr;
volatile int instants = 0;
volatile int halves = 0;

/** After each instruction: what a reader would take for whole is. */
void lookAtRecord(int /*signal*/) {
    unsigned int sequence = 0;
    std::memcpy(&sequence, watched->unused172 + offsetof(gPtpTimeQuality, sequence), 4);
    const bool isWhole = sequence == 0 ? std::memcmp(watched, &kNothing, sizeof kNothing) == 0
                                       : std::memcmp(watched, &leftBehind, sizeof leftBehind) == 0;
    instants = instants + 1;
    halves = halves + (sequence % 2 == 0 && !isWhole ? 1 : 0);
}

TEST_F(SharedSegment, IsNeverHalfZeroedForReadersOfItsSequence) {
    constexpr unsigned long kTrapFlag = 0x100;
    gPtpTimeDataStruct* const record = OSipc::instance("eth1");
    std::memset(&leftBehind, 0x5A, sizeof leftBehind);
    gPtpTimeQuality quality{};
    quality.magic = kTimeQualityMagic;
    quality.sequence = 8;
    std::memcpy(leftBehind.unused172, &quality, sizeof quality);
    *record = leftBehind;
    watched = record;
    std::signal(SIGTRAP, lookAtRecord);
    __writeeflags(__readeflags() | kTrapFlag);
    OSipc::instance("wm0");
    __writeeflags(__readeflags() & ~kTrapFlag);
    std::signal(SIGTRAP, SIG_DFL);
    EXPECT_LT(100, instants);
    EXPECT_EQ(0, halves);
    EXPECT_EQ(0, std::memcmp(record, &kNothing, sizeof kNothing));
}

TEST_F(SharedSegment, AnOlderSegmentIsResizedAndZeroed) {
    const int descriptor = open("/dev/shm/eth1", O_CREAT | O_WRONLY, 0600);
    const std::vector<unsigned char> old(700, 0xEE);
    ASSERT_EQ(700, write(descriptor, old.data(), old.size()));
    close(descriptor);
    OSipc::instance("eth1");
    EXPECT_EQ(std::string(520, '0'), toHex(segmentBytes()));
}

TEST_F(SharedSegment, StaysWhenItsUserIsGone) {
    EXPECT_EXIT(
        {
            OSipc::instance("eth1")->linkDelay = 1;
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ(std::string(48, '0') + "01" + std::string(470, '0'), toHex(segmentBytes()));
}

TEST_F(SharedSegment, BelongsToWhoMapsIt) {
    const int descriptor = open("/dev/shm/eth1", O_CREAT | O_WRONLY, 0666);
    const bool given = setgid(getgid() + 1) == 0 && fchown(descriptor, getuid() + 1, 0) == 0;
    close(descriptor);
    if (!given) {
        GTEST_SKIP() << "no other user to own the file";
    }
    OSipc::instance("eth1");
    struct stat status {};
    ASSERT_EQ(0, stat("/dev/shm/eth1", &status));
    EXPECT_EQ(getuid(), status.st_uid);
    EXPECT_EQ(getgid(), status.st_gid);
}

TEST_F(SharedSegment, IsMappedWhereItsOwnerCannotBeChanged) {
    ownerFailure = {1, EPERM};
    EXPECT_NE(nullptr, OSipc::instance("eth1"));
    EXPECT_EQ(0, ownerFailure.times);
    EXPECT_EQ(0, errno);
}

TEST_F(SharedSegment, MappingLogsTheSegmentName) {
    const StdoutCapture output;
    OSipc::instance("eth1");
    ASSERT_EQ(1U, output.lines().size());
    EXPECT_EQ("DEBUG", output.lines()[0].level);
    EXPECT_EQ("timebase/osipc.cpp", output.lines()[0].file);
    EXPECT_EQ("instance", output.lines()[0].function);
    EXPECT_EQ("shm_name.c_str(): /eth1", output.lines()[0].text);
}

TEST_F(SharedSegment, IsNamedInTheLogBeforeItIsOpened) {
    const StdoutCapture output;
    whenOpened = [&] { EXPECT_EQ(1U, output.lines().size()); };
    OSipc::instance("eth1");
    whenOpened = nullptr;
}

TEST_F(SharedSegment, IsMappedByAHostWithoutStandardInput) {
    close(0);
    EXPECT_NE(nullptr, OSipc::instance("eth1"));
    OSipc::map.clear();
    resizeFailure = {1, EFBIG};
    EXPECT_EQ(nullptr, OSipc::instance("eth1"));
    EXPECT_EQ(-1, fcntl(0, F_GETFD)) << "left open";
}

TEST_F(SharedSegment, KeepsNoDescriptorOpen) {
    const int before = nextDescriptor();
    OSipc::instance("eth1");
    EXPECT_EQ(before, nextDescriptor());
}

TEST_F(SharedSegment, KeepsNoDescriptorOpenWhenItCannotBeHad) {
    const int before = nextDescriptor();
    for (Failure* const failure : {&openFailure, &resizeFailure, &mapFailure}) {
        *failure = {1, ENOMEM};
        EXPECT_EQ(nullptr, OSipc::instance("eth1"));
        EXPECT_EQ(before, nextDescriptor());
    }
}

TEST_F(SharedSegment, KeepsTheDescriptorOfEachFailedRoundAboveTraceLevel2) {
    DbgTraceLevel = 3;
    resizeFailure = mapFailure = {2, EFBIG};
    const int before = nextDescriptor();
    EXPECT_NE(nullptr, OSipc::instance("eth1"));
    EXPECT_EQ(before + 4, nextDescriptor());
}

TEST_F(SharedSegment, CanBeNamedWhileATracedProcessTriesForEver) {
    alarm(20);  // ends a case that waits for the name's lock
    DbgTraceLevel = 3;
    shm_name = "/" + std::string(300, 'x');
    const StdoutCapture output;
    gPtpTimeDataStruct* record = nullptr;
    std::thread trying([&] { record = OSipc::instance("eth1"); });
    EXPECT_TRUE(output.await("instance  trace line 120\n", 2));
    nameSegment("/eth1");
    trying.join();
    EXPECT_NE(nullptr, record);
    EXPECT_EQ(260U, segmentBytes().size());
}

TEST(SegmentName, IsTheOneGivenLast) {
    nameSegment("/eth1");
    nameSegment("/wm0");
    EXPECT_EQ("/wm0", shm_name);
}

TEST_F(SharedSegment, ANameIsNeeded) {
    try {
        OSipc::instance(nullptr);
        FAIL() << "no exception";
    } catch (const std::logic_error& error) {
        EXPECT_STREQ("basic_string: construction from null is not valid", error.what());
    }
    EXPECT_NE(nullptr, OSipc::instance("eth1")) << "the lock was not released";
}

TEST_F(SharedSegment, AnUnusableNameIsReportedAndTriedAgainNextTime) {
    shm_name = "/" + std::string(300, 'x');
    expectRefusal("shm_open: Invalid argument\n");
    shm_name = "/eth1";
    EXPECT_NE(nullptr, OSipc::instance("eth1"));
}

TEST_F(SharedSegment, FailureToOpenIsReported) {
    openFailure = {1, EACCES};
    expectRefusal("shm_open: Permission denied\n");
}

TEST_F(SharedSegment, FailureToResizeIsReported) {
    resizeFailure = {1, EFBIG};
    expectRefusal("ftruncate: File too large\n");
}

TEST_F(SharedSegment, FailureToMapIsReported) {
    mapFailure = {1, ENOMEM};
    expectRefusal("mmap: Cannot allocate memory\n");
}

TEST_F(SharedSegment, FailureToOpenIsRetriedAboveTraceLevel2) {
    openFailure = {2, EACCES};
    expectRetry("instance  trace line 120\n");
}

TEST_F(SharedSegment, FailureToResizeIsRetriedAboveTraceLevel2) {
    resizeFailure = {2, EFBIG};
    expectRetry("instance  trace line 129\n");
}

TEST_F(SharedSegment, FailureToMapIsRetriedAboveTraceLevel2) {
    mapFailure = {2, ENOMEM};
    expectRetry("instance  trace line 136\n");
}

TEST(GetTime, LeavesItsArgument) {
    timespec time{};
    time.tv_sec = 12;
    time.tv_nsec = 34;
    getTime(&time);
    EXPECT_EQ(12, time.tv_sec);
    EXPECT_EQ(34, time.tv_nsec);
}

}  // namespace
