#include "timebase/osipc.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "api/DaemonState.h"
#include "base/DbgLog.h"
#include "tests/support/Sandbox.h"
#include "tests/support/StdoutCapture.h"
#include "tests/support/Vectors.h"

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

}  // namespace

extern "C" {
int __real_shm_open(const char* name, int flags, mode_t mode);
int __real_ftruncate(int descriptor, off_t length);
void* __real_mmap(void* address, size_t length, int protection, int flags, int descriptor,
                  off_t offset);

int __wrap_shm_open(const char* name, int flags, mode_t mode) {
    return openFailure.strikes() ? -1 : __real_shm_open(name, flags, mode);
}

int __wrap_ftruncate(int descriptor, off_t length) {
    return resizeFailure.strikes() ? -1 : __real_ftruncate(descriptor, length);
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

    ~SharedSegment() override { openFailure = resizeFailure = mapFailure = {}; }

    /** The segment as other processes see it. */
    static std::vector<unsigned char> segmentBytes() {
        const int descriptor = open("/dev/shm/eth1", O_RDONLY);
        std::vector<unsigned char> bytes(1000);
        const ssize_t count = read(descriptor, bytes.data(), bytes.size());
        close(descriptor);
        bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
        return bytes;
    }

    /** Null is returned and standard error says so. */
    static void expectRefusal(const std::string& message) {
        const StdoutCapture output;
        const StdoutCapture errors(STDERR_FILENO);
        EXPECT_EQ(OSipc::instance("eth1"), nullptr);
        EXPECT_EQ(errors.text(), message);
        EXPECT_TRUE(OSipc::map.empty());
    }

    /** Above trace level 2 the second attempt succeeds. */
    static void expectRetry(const std::string& line) {
        DbgTraceLevel = 3;
        const StdoutCapture errors(STDERR_FILENO);
        const StdoutCapture output;
        EXPECT_NE(OSipc::instance("eth1"), nullptr);
        EXPECT_EQ(output.count(line), 2);
        EXPECT_EQ(output.count("shm_name.c_str(): /eth1\n"), 3);
        EXPECT_EQ(errors.text(), "");
    }
};

TEST_F(SharedSegment, Has260ZeroBytesThatEveryoneMayReadAndWrite) {
    umask(0077);
    ASSERT_NE(OSipc::instance("eth1"), nullptr);
    EXPECT_EQ(toHex(segmentBytes()), std::string(520, '0'));
    struct stat status {};
    ASSERT_EQ(stat("/dev/shm/eth1", &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0777U);
    EXPECT_EQ(status.st_uid, getuid());
    EXPECT_EQ(status.st_gid, getgid());
}

TEST_F(SharedSegment, FileCreationMaskIsPutBack) {
    umask(0027);
    OSipc::instance("eth1");
    EXPECT_EQ(umask(0022), 0027U);
}

TEST_F(SharedSegment, RecordLies24BytesIntoIt) {
    gPtpTimeDataStruct* const record = OSipc::instance("eth1");
    std::memset(record, 0xAB, sizeof *record);
    EXPECT_EQ(
        toHex(segmentBytes()), std::string(48, '0') + [] {
            std::string filled;
            for (int i = 0; i < 236; ++i) {
                filled += "ab";
            }
            return filled;
        }());
    EXPECT_EQ(static_cast<unsigned char*>(OSipc::global_master_offset_buffer) + 24,
              reinterpret_cast<unsigned char*>(record));
    EXPECT_EQ(OSipc::record, record);
}

TEST_F(SharedSegment, TheSameNameGetsTheSameRecordUntouched) {
    gPtpTimeDataStruct* const record = OSipc::instance("eth1");
    record->linkDelay = 77;
    const StdoutCapture output;
    EXPECT_EQ(OSipc::instance("eth1"), record);
    EXPECT_EQ(record->linkDelay, 77);
    EXPECT_EQ(output.text(), "");
}

TEST_F(SharedSegment, ASecondNameMapsTheSameBytesAgainAndZeroesThem) {
    gPtpTimeDataStruct* const first = OSipc::instance("eth1");
    first->linkDelay = 77;
    gPtpTimeDataStruct* const second = OSipc::instance("wm0");
    EXPECT_NE(second, first);
    EXPECT_EQ(first->linkDelay, 0);
    second->softOffset = 5;
    EXPECT_EQ(first->softOffset, 5);
    EXPECT_EQ(OSipc::map.size(), 2U);
    EXPECT_EQ(OSipc::record, second);
}

TEST_F(SharedSegment, AnOlderSegmentIsResizedAndZeroed) {
    const int descriptor = open("/dev/shm/eth1", O_CREAT | O_WRONLY, 0600);
    const std::vector<unsigned char> old(700, 0xEE);
    ASSERT_EQ(write(descriptor, old.data(), old.size()), 700);
    close(descriptor);
    OSipc::instance("eth1");
    EXPECT_EQ(toHex(segmentBytes()), std::string(520, '0'));
}

TEST_F(SharedSegment, StaysWhenItsUserIsGone) {
    const StdoutCapture output;
    OSipc::instance("eth1")->linkDelay = 1;
    { const OSipc user; }
    EXPECT_EQ(segmentBytes().at(24), 1);
}

TEST_F(SharedSegment, MappingLogsTheSegmentName) {
    const StdoutCapture output;
    OSipc::instance("eth1");
    ASSERT_EQ(output.lines().size(), 1U);
    EXPECT_EQ(output.lines()[0].level, "DEBUG");
    EXPECT_EQ(output.lines()[0].file, "timebase/osipc.cpp");
    EXPECT_EQ(output.lines()[0].function, "instance");
    EXPECT_EQ(output.lines()[0].text, "shm_name.c_str(): /eth1");
}

TEST_F(SharedSegment, KeepsNoDescriptorOpen) {
    const int before = dup(0);
    close(before);
    OSipc::instance("eth1");
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
}

TEST_F(SharedSegment, ANameIsNeeded) {
    try {
        OSipc::instance(nullptr);
        FAIL() << "no exception";
    } catch (const std::logic_error& error) {
        EXPECT_STREQ(error.what(), "basic_string: construction from null is not valid");
    }
    EXPECT_NE(OSipc::instance("eth1"), nullptr) << "the lock was not released";
}

TEST_F(SharedSegment, AnUnusableNameIsReportedAndTriedAgainNextTime) {
    shm_name = "/" + std::string(300, 'x');
    expectRefusal("shm_open: Invalid argument\n");
    shm_name = "/eth1";
    EXPECT_NE(OSipc::instance("eth1"), nullptr);
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
    EXPECT_EQ(time.tv_sec, 12);
    EXPECT_EQ(time.tv_nsec, 34);
}

}  // namespace
