/** gPtpTimeReader.h for C++: one object a thread, std::chrono, and no exceptions. */
#pragma once

#include "gPtpTimeReader.h"

#include <chrono>
#include <ratio>
#include <utility>

namespace gptp {

/** The time scale of the grandmaster, ns since its epoch. It has no now(): that takes a reader. */
struct GrandmasterClock {
    using rep = long long;
    using period = std::nano;
    using duration = std::chrono::nanoseconds;
    using time_point = std::chrono::time_point<GrandmasterClock, duration>;
    static constexpr bool is_steady = false;
};

using SystemTime = std::chrono::time_point<std::chrono::system_clock, std::chrono::nanoseconds>;

/** A moment on one clock and what came of reading it. Without a bound earliest is min() and latest
 *  max(); without a time, time is min(). */
template <typename TimePoint>
struct Moment {
    TimePoint earliest;
    TimePoint latest;
    TimePoint time;
    SystemTime system;
    unsigned int state;  ///< enum TSynTimeState or kTimeStateUntold
    unsigned int stepCount;
    gPtpReadResult result;

    explicit operator bool() const noexcept { return result == GPTP_READ_OK; }
    bool hasTime() const noexcept { return time != (TimePoint::min)(); }
    const char* text() const noexcept { return gPtpReadText(result); }
    bool isCertainlyBefore(const Moment& other) const noexcept { return latest < other.earliest; }
    bool isCertainlyAfter(const Moment& other) const noexcept { return other.latest < earliest; }
};

using MasterMoment = Moment<GrandmasterClock::time_point>;
using SystemMoment = Moment<SystemTime>;

class TimeReader {
public:
    explicit TimeReader(const char* interfaceName) noexcept
        : opened_(static_cast<gPtpReadResult>(gPtpReaderOpen(&reader_, interfaceName))) {}
    ~TimeReader() { gPtpReaderClose(&reader_); }
    TimeReader(const TimeReader&) = delete;
    TimeReader& operator=(const TimeReader&) = delete;
    TimeReader(TimeReader&& other) noexcept : reader_(other.reader_), opened_(other.opened_) {
        other.reader_ = gPtpTimeReader{};
    }
    TimeReader& operator=(TimeReader&& other) noexcept {
        std::swap(reader_, other.reader_);
        std::swap(opened_, other.opened_);
        return *this;
    }

    /** What came of opening; each reading tries again. */
    gPtpReadResult opened() const noexcept { return opened_; }

    void setMaxAge(std::chrono::nanoseconds age) noexcept { reader_.limits.maxAgeNs = age.count(); }
    void setMaxWidth(std::chrono::nanoseconds width) noexcept {
        reader_.limits.maxWidthNs = width.count();
    }

    MasterMoment now() noexcept {
        gPtpTimeReading reading;
        const int result = gPtpReaderNow(&reader_, &reading);
        return momentOf<GrandmasterClock::time_point>(reading, result);
    }
    MasterMoment at(SystemTime system) noexcept {
        gPtpTimeReading reading;
        const int result = gPtpReaderAt(&reader_, system.time_since_epoch().count(), &reading);
        return momentOf<GrandmasterClock::time_point>(reading, result);
    }
    SystemMoment systemAt(GrandmasterClock::time_point master) noexcept {
        gPtpTimeReading reading;
        const int result =
            gPtpReaderSystemAt(&reader_, master.time_since_epoch().count(), &reading);
        return momentOf<SystemTime>(reading, result);
    }

    /** As gPtpReaderOwner. */
    gPtpReadResult owner() noexcept {
        return static_cast<gPtpReadResult>(gPtpReaderOwner(&reader_));
    }

    /** As gPtpReaderRecord. */
    gPtpReadResult record(gPtpTimeDataStruct& record) noexcept {
        return static_cast<gPtpReadResult>(gPtpReaderRecord(&reader_, &record));
    }

private:
    template <typename TimePoint>
    static Moment<TimePoint> momentOf(const gPtpTimeReading& reading, int result) noexcept {
        using std::chrono::nanoseconds;
        return {TimePoint(nanoseconds(reading.earliestNs)),
                TimePoint(nanoseconds(reading.latestNs)),
                TimePoint(nanoseconds(reading.timeNs)),
                SystemTime(nanoseconds(reading.systemNs)),
                reading.state,
                reading.stepCount,
                static_cast<gPtpReadResult>(result)};
    }

    gPtpTimeReader reader_;
    gPtpReadResult opened_;
};

}  // namespace gptp
