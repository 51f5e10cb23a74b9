#pragma once

#include <memory>
#include <string>

#include "tools/tsyn/feed/ClockSample.h"

namespace tsyn {

/** The program that samples are for. */
class SampleSink {
public:
    SampleSink() = default;
    virtual ~SampleSink() = default;
    SampleSink(const SampleSink&) = delete;
    SampleSink& operator=(const SampleSink&) = delete;

    /** What is wrong for good, in one line: what, where and what to do. Empty when all is well or
     *  may become so. */
    virtual std::string open() = 0;

    /** Never blocks. Empty, or why the sample got lost; the next one is tried anew. */
    virtual std::string deliver(const ClockSample& sample) = 0;

    /** As a user knows it. */
    virtual std::string name() const = 0;
};

/** chronyd's `refclock SOCK path`. */
std::unique_ptr<SampleSink> makeChronySink(const std::string& path);

/** The shared memory of `refclock SHM unit` of chronyd and of ntpd's driver 28. */
std::unique_ptr<SampleSink> makeNtpSink(int unit);

}  // namespace tsyn
