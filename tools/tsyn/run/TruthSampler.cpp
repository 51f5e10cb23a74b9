#include "tools/tsyn/run/TruthSampler.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "tools/tsyn/run/HostTime.h"
#include "tools/virtual_i210/VirtualI210.h"

namespace tsyn {
namespace {

/** The daemon's time and the interval of raw monotonic time in which it was read. */
struct BracketedTime {
    std::uint64_t timeNs = 0;
    std::uint64_t rawMiddleNs = 0;
    std::uint64_t widthNs = UINT64_MAX;
};

/** The narrowest of a few readings, since any of them may be interrupted half-way. */
std::optional<BracketedTime> readNarrowly() {
    constexpr int kAttempts = 8;
    constexpr std::uint64_t kNarrowNs = 400;
    BracketedTime best;
    for (int attempt = 0; attempt < kAttempts && best.widthNs > kNarrowNs; ++attempt) {
        const std::uint64_t before = virtual_i210::rawNowNs();
        const std::optional<HostTime> time = currentTime();
        const std::uint64_t after = virtual_i210::rawNowNs();
        if (!time) {
            return {};
        }
        if (after - before < best.widthNs) {
            best = {time->totalNs(), before + (after - before) / 2, after - before};
        }
    }
    return best;
}

bool isVirtualCard(const std::string& cardName) {
    try {
        return virtual_i210::truePhcNs(cardName.c_str(), virtual_i210::rawNowNs()).has_value();
    } catch (const std::runtime_error&) {
        return false;
    }
}

}  // namespace

std::string TruthSampler::open(const std::string& path) {
    if (!isVirtualCard(cardName_)) {
        return "--truth " + cardName_ + ": no such virtual i210; VIRTUAL_I210 must configure it";
    }
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
    const auto truth = virtual_i210::truePhcNs(cardName_.c_str(), reading->rawMiddleNs);
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
