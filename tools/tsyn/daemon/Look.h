#pragma once

#include <optional>

#include "include/gPtpTimeQuality.h"

namespace tsyn {

/** A daemon's record as it was at one moment, seen from another process. */
struct Look {
    gPtpTimeDataStruct record{};
    std::optional<gPtpTimeQuality> quality; /**< of daemons that tell of it */
    long long systemNs = 0;                 /**< system time of this host at that moment */
    double monotonicS = 0.0;                /**< the same moment on a clock that nobody sets */
    unsigned int segment = 0; /**< counts the segments that were found one after the other */
};

/** A deployed master publishes its card's time, and beside it what the host put on top: this is the
 *  record with both together, as masters of the standard profile publish it. */
gPtpTimeDataStruct withSoftOffset(const gPtpTimeDataStruct& record);

/** A look at this record now, with its soft offset. */
Look lookNow(const gPtpTimeDataStruct& record);

/** All that stays zero in a record is zero; the memory of another program hardly is. */
bool isTimeRecord(const gPtpTimeDataStruct& record);

/** The host's clocks. */
long long systemNowNs();
double monotonicNowS();

}  // namespace tsyn
