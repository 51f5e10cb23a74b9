#include "ptp/ReferenceRecord.h"

#include <gtest/gtest.h>

#include <ctime>

#include "base/ptptime.h"
#include "tests/support/Vectors.h"

namespace {

/** From one value modulo 2^32 to another. */
int distance(long long from, long long to) {
    return static_cast<int>(static_cast<unsigned int>(to) - static_cast<unsigned int>(from));
}

TEST(ProcessCpuTime, WrapsAsEveryVectorTells) {
    for (const nlohmann::json& vector : vectors("cpu_time_product")) {
        timespec time{};
        time.tv_sec = vector.at("seconds").get<int>();
        time.tv_nsec = vector.at("nanoseconds").get<int>();
        EXPECT_EQ(toS64(vector.at("U")), wrappedCpuTimeNs(time)) << vector;
    }
}

TEST(ProcessCpuTime, IsThatOfThisProcess) {
    timespec before{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &before);
    const long long measured = processCpuTimeNs();
    timespec after{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &after);
    EXPECT_GE(distance(wrappedCpuTimeNs(before), measured), 0);
    EXPECT_GE(distance(measured, wrappedCpuTimeNs(after)), 0);
}

}  // namespace
