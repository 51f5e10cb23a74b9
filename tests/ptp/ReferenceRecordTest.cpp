#include "ptp/ReferenceRecord.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <ctime>

#include "base/ptptime.h"
#include "tests/ptp/FakePlatform.h"
#include "tests/support/Vectors.h"

namespace {

TEST(ProcessCpuTime, WrapsAsEveryVectorTells) {
    for (const nlohmann::json& vector : vectors("cpu_time_product")) {
        timespec time{};
        time.tv_sec = vector.at("seconds").get<int>();
        time.tv_nsec = vector.at("nanoseconds").get<int>();
        EXPECT_EQ(toS64(vector.at("U")), wrappedCpuTimeNs(time)) << vector;
    }
}

TEST(ProcessCpuTime, IsThatOfAllThreadsOfThisProcess) {
    platform().clocks[CLOCK_THREAD_CPUTIME_ID] = {0, 1};
    platform().clocks[CLOCK_PROCESS_CPUTIME_ID] = {3, 5};
    EXPECT_EQ(-1294967291, processCpuTimeNs());
}

/** Whoever reads a core dump counts bytes. */
TEST(ReferencePairs, AreTwoClockReadingsAndTheirTwoCpuTimes) {
    EXPECT_EQ(16U, offsetof(ReferenceRecord, cpuTime));
    EXPECT_EQ(32U, sizeof(ReferenceRecord));
}

}  // namespace
