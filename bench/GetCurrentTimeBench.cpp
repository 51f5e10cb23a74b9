// What a host pays for the synchronised time, beside the one clock reading it contains.
//
// A slave daemon runs on the interface named by TSYN_BENCH_INTERFACE. The interface is silent and
// needs no card, so that nothing disturbs the measurement; the record is filled here with what a
// synchronised slave publishes.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "ZebEthTimeSynSupportInterface.h"
#include "gPtpTimeData.h"

namespace {

void getCurrentTime(benchmark::State& state) {
    unsigned long long seconds = 0;
    unsigned int nanoseconds = 0;
    for ([[maybe_unused]] auto _ : state) {
        ZebEthTSynInterface_GetCurrentTime(0, &seconds, &nanoseconds, nullptr, nullptr, nullptr,
                                           nullptr, nullptr, nullptr);
        benchmark::DoNotOptimize(seconds);
        benchmark::DoNotOptimize(nanoseconds);
    }
}
BENCHMARK(getCurrentTime)->Name("GetCurrentTime");

void getCurrentTimeAllOutputs(benchmark::State& state) {
    unsigned long long seconds = 0;
    unsigned int nanoseconds = 0;
    unsigned short sequenceId = 0;
    unsigned int pathDelay = 0;
    unsigned int rejectedSyncs = 0;
    unsigned int timeBaseStatus = 0;
    TSynSubTlvReport subTlvs{};
    TSynUserData userData{};
    for ([[maybe_unused]] auto _ : state) {
        ZebEthTSynInterface_GetCurrentTime(0, &seconds, &nanoseconds, &sequenceId, &pathDelay,
                                           &rejectedSyncs, &timeBaseStatus, &subTlvs, &userData);
        benchmark::DoNotOptimize(seconds);
        benchmark::DoNotOptimize(subTlvs);
    }
}
BENCHMARK(getCurrentTimeAllOutputs)->Name("GetCurrentTime_all_outputs");

void clockGettime(benchmark::State& state) {
    timespec now{};
    for ([[maybe_unused]] auto _ : state) {
        clock_gettime(CLOCK_REALTIME, &now);
        benchmark::DoNotOptimize(now);
    }
}
BENCHMARK(clockGettime)->Name("clock_gettime");

bool daemonRuns() {
    unsigned long long seconds = ~0ULL;
    ZebEthTSynInterface_GetCurrentTime(0, &seconds, nullptr, nullptr, nullptr, nullptr, nullptr,
                                       nullptr, nullptr);
    return seconds != ~0ULL;
}

bool startSlave(const std::string& interfaceName) {
    TSynInstanceConfig config{};
    config.recordSize = sizeof config;
    interfaceName.copy(config.interfaceName, sizeof config.interfaceName - 1);
    config.VlanID = -1;
    config.PropagationDelay = 500;
    config.syncInterval = 125.0;
    DbgTraceLevel = 0;
    if (ZebEthTSynInterface_Create(&config) != 0) {
        return false;
    }
    ZebEthTSynInterface_Start(0, nullptr, nullptr);
    constexpr int kAttempts = 1000;
    for (int attempt = 0; attempt < kAttempts && !daemonRuns(); ++attempt) {
        usleep(10000);
    }
    return daemonRuns();
}

/** Publishes a time base 1.5 s off with a rate error of 37 ppm. */
bool fillRecord(const std::string& interfaceName) {
    const int fd = shm_open(("/" + interfaceName).c_str(), O_RDWR, 0);
    void* segment =
        fd < 0 ? MAP_FAILED
               : mmap(nullptr, kSharedSegmentSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (segment == MAP_FAILED) {
        return false;
    }
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    constexpr long long kOffsetNs = 1500000000;
    constexpr std::size_t kExtendedBytes = 10;
    const long double masterRate = 1.0L / 1.000037L;
    const long double phcRate = 1.000037L;
    gPtpTimeDataStruct record{};
    record.masterOffset = kOffsetNs;
    record.systemOffset = -kOffsetNs;
    record.localTime = now.tv_sec * 1000000000ULL + now.tv_nsec + kOffsetNs;
    std::memcpy(record.rateRatio1, &masterRate, kExtendedBytes);
    std::memcpy(record.rateRatio2, &phcRate, kExtendedBytes);
    std::memcpy(static_cast<char*>(segment) + kSharedRecordOffset, &record, sizeof record);
    munmap(segment, kSharedSegmentSize);
    close(fd);
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    const char* interfaceName = std::getenv("TSYN_BENCH_INTERFACE");
    if (interfaceName == nullptr || !startSlave(interfaceName) || !fillRecord(interfaceName)) {
        std::fprintf(stderr, "tsyn_bench: no daemon on TSYN_BENCH_INTERFACE; start bench/run\n");
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    ZebEthTSynInterface_Destroy();
    return 0;
}
