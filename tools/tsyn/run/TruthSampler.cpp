#include "tools/tsyn/run/TruthSampler.h"

#include <dlfcn.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "tools/tsyn/run/HostTime.h"
#include "tools/virtual_i210/TrueTime.h"

namespace tsyn {
namespace {

/** The daemon's time and the interval of raw monotonic time in which it was read. */
struct BracketedTime {
    std::uint64_t timeNs = 0;
    std::uint64_t rawMiddleNs = 0;
    std::uint64_t widthNs = UINT64_MAX;
};

std::uint64_t rawNowNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_RAW, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000000000U +
           static_cast<std::uint64_t>(now.tv_nsec);
}

/** The narrowest of a few readings, since any of them may be interrupted half-way. */
std::optional<BracketedTime> readNarrowly() {
    constexpr int kAttempts = 8;
    constexpr std::uint64_t kNarrowNs = 400;
    BracketedTime best;
    for (int attempt = 0; attempt < kAttempts && best.widthNs > kNarrowNs; ++attempt) {
        const std::uint64_t before = rawNowNs();
        const std::optional<HostTime> time = currentTime();
        const std::uint64_t after = rawNowNs();
        if (!time) {
            return {};
        }
        if (after - before < best.widthNs) {
            best = {time->totalNs(), before + (after - before) / 2, after - before};
        }
    }
    return best;
}

}  // namespace

std::string TruthSampler::findCard() {
    // Looked up at run time: a tsyn that is installed knows nothing of virtual cards.
    trueTime_ = reinterpret_cast<decltype(&virtual_i210_true_time)>(
        dlsym(RTLD_DEFAULT, "virtual_i210_true_time"));
    if (trueTime_ == nullptr) {
        return "--truth " + cardName_ +
               ": only a virtual i210 tells its true time; start tsyn with LD_PRELOAD naming "
               "libvirtual_i210.so";
    }
    if (!trueTimeNs(rawNowNs())) {
        return "--truth " + cardName_ + ": no such virtual i210; VIRTUAL_I210 must configure it";
    }
    return {};
}

std::optional<std::uint64_t> TruthSampler::trueTimeNs(std::uint64_t rawNs) const {
    std::uint64_t phcNs = 0;
    if (trueTime_(cardName_.c_str(), rawNs, &phcNs) == 0) {
        return {};
    }
    return phcNs;
}

std::string TruthSampler::open(const std::string& path) {
    file_.reset(std::fopen(path.c_str(), "we"));
    if (!file_) {
        return "--samples " + path + ": cannot be created (" + std::strerror(errno) +
               "); name a file in a folder that can be written";
    }
    std::fputs("t_s,error_ns,bracket_ns,valid\n", file_.get());
    return {};
}

void TruthSampler::sample(double nowS, bool valid) {
    const std::optional<BracketedTime> reading = readNarrowly();
    if (!reading) {
        return;
    }
    const std::optional<std::uint64_t> truth = trueTimeNs(reading->rawMiddleNs);
    if (!truth) {
        return;
    }
    const auto errorNs = static_cast<long long>(reading->timeNs - *truth);
    if (valid) {
        lastErrorNs_ = errorNs;
    }
    ++count_;
    std::fprintf(file_.get(), "%.6f,%lld,%llu,%d\n", nowS, errorNs,
                 static_cast<unsigned long long>(reading->widthNs), valid ? 1 : 0);
}

}  // namespace tsyn
