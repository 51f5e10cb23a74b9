#include <sys/ipc.h>
#include <sys/shm.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>

#include "tools/tsyn/feed/SampleSink.h"

namespace tsyn {
namespace {

/** The segment, in the layout of the machine's word size. */
struct NtpSegment {
    int mode; /**< 1: count tells a reader that the sample changed under its hands */
    std::atomic<int> count;
    time_t clockSeconds; /**< true time */
    int clockMicroseconds;
    time_t receiveSeconds; /**< system time at the same moment */
    int receiveMicroseconds;
    int leap;
    int precision; /**< power of two, s */
    int sampleCount;
    std::atomic<int> valid; /**< the reader takes it back */
    unsigned int clockNanoseconds;
    unsigned int receiveNanoseconds;
    int unused[8];
};
static_assert(sizeof(void*) == 4 || sizeof(NtpSegment) == 96, "as 64-bit readers have it");

constexpr key_t kFirstKey = 0x4e545030;
constexpr long long kSecondNs = 1000000000;
/** Some 60 ns. */
constexpr int kPrecision = -24;

class NtpSink : public SampleSink {
public:
    explicit NtpSink(int unit) : unit_(unit) {}
    ~NtpSink() override { detach(); }

    std::string open() override { return attach(); }
    std::string deliver(const ClockSample& sample) override;
    std::string name() const override { return "NTP shared memory " + std::to_string(unit_); }

private:
    std::string attach();
    void detach();
    std::string problem() const;

    int unit_;
    int identifier_ = -1;
    NtpSegment* segment_ = nullptr;
};

std::string NtpSink::problem() const {
    const std::string what = "--ntp-shm " + std::to_string(unit_) + ": ";
    switch (errno) {
    case EACCES:
        return what + "the segment is another user's; run as root, or take a unit from 2 on";
    case EINVAL:
        return what +
               "the segment is too small, of a program of another word size; remove it "
               "by ipcrm";
    default:
        return what + "the segment cannot be had (" + std::strerror(errno) + ")";
    }
}

/** The one that is there now: it may have been removed and made anew. */
std::string NtpSink::attach() {
    // As the readers make it: the first two are for root alone.
    const int permissions = unit_ < 2 ? 0600 : 0666;
    const int identifier = shmget(kFirstKey + unit_, sizeof(NtpSegment), IPC_CREAT | permissions);
    if (identifier < 0) {
        return problem();
    }
    if (segment_ != nullptr && identifier == identifier_) {
        return {};
    }
    detach();
    void* const memory = shmat(identifier, nullptr, 0);
    if (reinterpret_cast<std::intptr_t>(memory) == -1) {
        return problem();
    }
    segment_ = static_cast<NtpSegment*>(memory);
    identifier_ = identifier;
    return {};
}

void NtpSink::detach() {
    if (segment_ != nullptr) {
        shmdt(segment_);
        segment_ = nullptr;
    }
}

std::string NtpSink::deliver(const ClockSample& sample) {
    if (std::string lost = attach(); !lost.empty()) {
        return lost;
    }
    NtpSegment& segment = *segment_;
    segment.valid = 0;
    segment.mode = 1;
    ++segment.count;
    segment.clockSeconds = static_cast<time_t>(sample.utcNs / kSecondNs);
    segment.clockNanoseconds = static_cast<unsigned int>(sample.utcNs % kSecondNs);
    segment.clockMicroseconds = static_cast<int>(sample.utcNs % kSecondNs / 1000);
    segment.receiveSeconds = static_cast<time_t>(sample.systemNs / kSecondNs);
    segment.receiveNanoseconds = static_cast<unsigned int>(sample.systemNs % kSecondNs);
    segment.receiveMicroseconds = static_cast<int>(sample.systemNs % kSecondNs / 1000);
    segment.leap = 0;
    segment.precision = kPrecision;
    std::atomic_thread_fence(std::memory_order_seq_cst);
    ++segment.count;
    segment.valid = 1;
    return {};
}

}  // namespace

std::unique_ptr<SampleSink> makeNtpSink(int unit) {
    return std::make_unique<NtpSink>(unit);
}

}  // namespace tsyn
