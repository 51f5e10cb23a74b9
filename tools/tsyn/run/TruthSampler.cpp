#include "tools/tsyn/run/TruthSampler.h"

#include <dlfcn.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "include/ZebEthTimeSynProfile.h"
#include "include/gPtpTimeQuality.h"
#include "tools/tsyn/run/HostTime.h"
#include "tools/virtual_i210/TrueTime.h"

namespace tsyn {
namespace {

std::uint64_t rawNowNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_RAW, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000000000U +
           static_cast<std::uint64_t>(now.tv_nsec);
}

constexpr int kReadings = 8;
/** Much wider ones were interrupted half-way. */
constexpr std::uint64_t kWideFactor = 2;

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

std::string TruthSampler::open(const std::string& path, bool withBounds) {
    withBounds_ = withBounds;
    path_ = path;
    file_.reset(std::fopen(path.c_str(), "we"));
    if (!file_) {
        return "--samples " + path + ": cannot be created (" + std::strerror(errno) +
               "); name a file in a folder that can be written";
    }
    std::fputs(withBounds_ ? "t_s,error_ns,bracket_ns,valid,outside_ns,width_ns\n"
                           : "t_s,error_ns,bracket_ns,valid\n",
               file_.get());
    return {};
}

std::string TruthSampler::writeProblem() const {
    if (!file_ || std::ferror(file_.get()) == 0) {
        return {};
    }
    return "--samples " + path_ + ": cannot be written; is the disk full?";
}

std::string TruthSampler::finish() {
    if (file_) {
        std::fflush(file_.get());
    }
    return writeProblem();
}

std::optional<TruthSampler::Comparison> TruthSampler::compareOnce() const {
    const std::uint64_t before = rawNowNs();
    const std::optional<HostTime> time = currentTime();
    const std::uint64_t after = rawNowNs();
    const auto truth = trueTimeNs(before + (after - before) / 2);
    if (!time || !truth) {
        return {};
    }
    return Comparison{static_cast<long long>(time->totalNs() - *truth), after - before};
}

/** The narrowest of a few readings, since any of them may be interrupted half-way. Runs of deployed
 *  daemons are repeated from their seeds, so it takes no more readings than it needs. */
std::optional<TruthSampler::Comparison> TruthSampler::compareNarrowly() const {
    constexpr std::uint64_t kNarrowNs = 400;
    Comparison best{0, UINT64_MAX};
    for (int i = 0; i < kReadings && best.bracketNs > kNarrowNs; ++i) {
        const std::optional<Comparison> compared = compareOnce();
        if (!compared) {
            return {};
        }
        if (compared->bracketNs < best.bracketNs) {
            best = *compared;
        }
    }
    return best;
}

/** One reading errs by half its bracket: the mean of several that were not interrupted. */
std::optional<TruthSampler::Comparison> TruthSampler::compare() const {
    Comparison each[kReadings];
    std::uint64_t narrowestNs = UINT64_MAX;
    for (Comparison& comparison : each) {
        const std::optional<Comparison> compared = compareOnce();
        if (!compared) {
            return {};
        }
        comparison = *compared;
        narrowestNs = std::min(narrowestNs, comparison.bracketNs);
    }
    const long long first = each[0].errorNs;
    long long sum = 0;
    long long count = 0;
    for (const Comparison& comparison : each) {
        if (comparison.bracketNs <= kWideFactor * narrowestNs) {
            sum += comparison.errorNs - first;
            ++count;
        }
    }
    return Comparison{first + sum / count, narrowestNs};
}

/** Where the truth lies between the bounds that the daemon tells of one moment. */
std::optional<TruthSampler::Bounds> TruthSampler::compareBounds() const {
    TSynBoundedTime time{};
    const std::uint64_t before = rawNowNs();
    const int result = ZebEthTSynInterface_GetBoundedTime(&time);
    const std::uint64_t after = rawNowNs();
    const auto truth = trueTimeNs(before + (after - before) / 2);
    if (result != 0 || !truth ||
        (time.state != TSYN_STATE_SYNCHRONISED && time.state != TSYN_STATE_HOLDOVER)) {
        return {};
    }
    const auto trueNs = static_cast<long long>(*truth);
    const auto halfBracketNs = static_cast<long long>(after - before) / 2;
    const long long outsideNs =
        std::max(time.earliestNs - trueNs, trueNs - time.latestNs) - halfBracketNs;
    return Bounds{std::max(outsideNs, 0LL), time.latestNs - time.earliestNs};
}

void TruthSampler::sample(double nowS, bool valid) {
    const std::optional<Comparison> compared = withBounds_ ? compare() : compareNarrowly();
    if (!compared) {
        return;
    }
    const std::optional<Bounds> bounds = withBounds_ ? compareBounds() : std::nullopt;
    const bool counts = valid && (!withBounds_ || bounds);
    if (counts) {
        lastErrorNs_ = compared->errorNs;
    }
    ++count_;
    std::fprintf(file_.get(), "%.6f,%lld,%llu,%d", nowS, compared->errorNs,
                 static_cast<unsigned long long>(compared->bracketNs), counts ? 1 : 0);
    if (withBounds_) {
        const Bounds told = bounds.value_or(Bounds{});
        std::fprintf(file_.get(), ",%lld,%lld", told.outsideNs, told.widthNs);
    }
    std::fputc('\n', file_.get());
}

}  // namespace tsyn
