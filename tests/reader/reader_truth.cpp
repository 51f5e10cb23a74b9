/** Reads the time of an interface beside the true time of a virtual card, in columns:
 *      reader_truth IF CARD COUNT PERIOD_MS */
#include <dlfcn.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "include/gPtpTimeReader.hpp"
#include "tools/virtual_i210/TrueTime.h"

namespace {

std::uint64_t rawNowNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_RAW, &now);
    return static_cast<std::uint64_t>(gPtpNanoseconds(&now));
}

long long nsOf(gptp::GrandmasterClock::time_point time) {
    return time.time_since_epoch().count();
}

}  // namespace

int main(int argc, char** argv) {
    const auto trueTime = reinterpret_cast<decltype(&virtual_i210_true_time)>(
        dlsym(RTLD_DEFAULT, "virtual_i210_true_time"));
    if (argc != 5 || trueTime == nullptr) {
        return 2;
    }
    gptp::TimeReader reader(argv[1]);
    const long count = std::strtol(argv[3], nullptr, 10);
    for (long i = 0; i < count; ++i) {
        const std::uint64_t before = rawNowNs();
        const gptp::MasterMoment moment = reader.now();
        const std::uint64_t after = rawNowNs();
        std::uint64_t truth = 0;
        trueTime(argv[2], before + (after - before) / 2, &truth);
        std::printf("%d %lld %lld %lld %lld %lld\n", moment.result, nsOf(moment.earliest),
                    nsOf(moment.latest), nsOf(moment.time), static_cast<long long>(truth),
                    static_cast<long long>(after - before));
        std::fflush(stdout);
        usleep(static_cast<useconds_t>(1000 * std::strtol(argv[4], nullptr, 10)));
    }
    return 0;
}
