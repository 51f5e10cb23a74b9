// What a reader of the published time pays, and how often a record is in the making when it looks.
//
// The segment is written here: once for the cost of a call, and as fast as one thread can for the
// rest. A line's members all tell one number, so a mixture shows.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <thread>

#include "include/gPtpTimeReader.hpp"
#include "timebase/TimeRecord.h"

namespace {

constexpr const char* kName = "tsb1";
gPtpTimeDataStruct* shared = nullptr;
gPtpTimeQuality told{};

bool makeSegment() {
    const int file = shm_open("/tsb1", O_RDWR | O_CREAT, 0600);
    void* const mapped =
        file < 0 || ftruncate(file, kSharedSegmentSize) != 0
            ? MAP_FAILED
            : mmap(nullptr, kSharedSegmentSize, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (mapped == MAP_FAILED) {
        return false;
    }
    shared =
        reinterpret_cast<gPtpTimeDataStruct*>(static_cast<char*>(mapped) + kSharedRecordOffset);
    told.magic = kTimeQualityMagic;
    told.layout = kTimeQualityLayout;
    told.state = TSYN_STATE_SYNCHRONISED;
    told.boundNs = 100;
    told.boundGrowthPpb = 300;
    told.voidAfterNs = LLONG_MAX;
    return true;
}

void publish(long long number) {
    TimeRecord(shared).publishLine(
        {static_cast<unsigned long long>(number), number, number, 1 - 37e-6L, 1 + 11e-6L}, {0, 0},
        told);
}

template <typename Read>
void call(benchmark::State& state, Read read) {
    publish(gPtpSystemNow() / 2);  // local time and system offset come to now
    gPtpTimeReader reader;
    gPtpTimeReading reading;
    gPtpReaderOpen(&reader, kName);
    for ([[maybe_unused]] auto _ : state) {
        if (read(reader, reading) != GPTP_READ_OK) {
            state.SkipWithError("no time");
            break;
        }
        benchmark::DoNotOptimize(reading);
    }
    gPtpReaderClose(&reader);
}

void now(benchmark::State& state) {
    call(state, [](gPtpTimeReader& reader, gPtpTimeReading& reading) {
        return gPtpReaderNow(&reader, &reading);
    });
}
BENCHMARK(now)->Name("reader_now");

void at(benchmark::State& state) {
    const long long systemNs = gPtpSystemNow();
    call(state, [systemNs](gPtpTimeReader& reader, gPtpTimeReading& reading) {
        return gPtpReaderAt(&reader, systemNs, &reading);
    });
}
BENCHMARK(at)->Name("reader_at");

void nowInCxx(benchmark::State& state) {
    publish(gPtpSystemNow() / 2);
    gptp::TimeReader reader(kName);
    for ([[maybe_unused]] auto _ : state) {
        gptp::MasterMoment moment = reader.now();
        benchmark::DoNotOptimize(moment);
    }
}
BENCHMARK(nowInCxx)->Name("reader_now_cxx");

void clockGettime(benchmark::State& state) {
    for ([[maybe_unused]] auto _ : state) {
        long long systemNs = gPtpSystemNow();
        benchmark::DoNotOptimize(systemNs);
    }
}
BENCHMARK(clockGettime)->Name("reader_clock");

bool isMixed(const gPtpHead& head) {
    return head.localTime != head.masterOffset || head.localTime != head.systemOffset;
}

/** Copies beside a writer that does nothing else: how many a plain copy mixes, how many the reader
 *  does, and how many it gives up. */
void besideWriter(benchmark::State& state) {
    std::atomic<bool> ends{false};
    std::atomic<long long> written{0};
    std::thread writer([&] {
        for (long long i = 1; !ends; ++i) {
            publish(i);
            written = i;
        }
    });
    gPtpTimeReader reader;
    gPtpReaderOpen(&reader, kName);
    double plainMixed = 0;
    double mixed = 0;
    double givenUp = 0;
    for ([[maybe_unused]] auto _ : state) {
        gPtpHead head{};
        gPtpCopyHead(&head, reader.words);
        plainMixed += isMixed(head) ? 1 : 0;
        if (gPtpTakeHead(reader.words, &head, nullptr) != GPTP_READ_OK) {
            ++givenUp;
        } else {
            mixed += isMixed(head) ? 1 : 0;
        }
    }
    ends = true;
    writer.join();
    gPtpReaderClose(&reader);
    const auto share = benchmark::Counter::kAvgIterations;
    state.counters["plain_mixed"] = benchmark::Counter(plainMixed, share);
    state.counters["mixed"] = benchmark::Counter(mixed, share);
    state.counters["given_up"] = benchmark::Counter(givenUp, share);
    state.counters["written"] =
        benchmark::Counter(static_cast<double>(written), benchmark::Counter::kAvgIterations);
}
BENCHMARK(besideWriter)->Name("reader_beside_writer")->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (!makeSegment()) {
        std::fprintf(stderr, "reader_bench: no segment in /dev/shm\n");
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    shm_unlink("/tsb1");
    return 0;
}
