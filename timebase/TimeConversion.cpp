#include "base/Exports.h"
#include "base/Extended80.h"
#include "include/gPtpTimeData.h"

namespace {

long double effectiveRate(const gPtpTimeDataStruct& data) {
    return loadExtended(data.rateRatio1) * loadExtended(data.rateRatio2);
}

/** |A - B| + (-A - C) * R: the time that system time 0 maps to. The absolute value stays, since
 *  deployed readers of the record compute the same. */
double timeAtSystemZero(const gPtpTimeDataStruct& data, long double rate) {
    const unsigned long long localTime = data.localTime;
    const unsigned long long masterOffset = static_cast<unsigned long long>(data.masterOffset);
    const unsigned long long systemOffset = static_cast<unsigned long long>(data.systemOffset);
    const long double synchronised =
        std::fabs(static_cast<long double>(signedDiff(localTime, masterOffset)));
    const long double elapsed =
        static_cast<long double>(static_cast<long long>(0 - localTime - systemOffset));
    return static_cast<double>(synchronised + elapsed * rate);
}

}  // namespace

ZEB_EXPORT unsigned long long get_1AS_time(gPtpTimeDataStruct* data, long long systemTimeNs) {
    const long double rate = effectiveRate(*data);
    const double base = timeAtSystemZero(*data, rate);
    const double scaled = static_cast<double>(rate) * static_cast<double>(systemTimeNs);
    return doubleToU64(base + scaled);
}

ZEB_EXPORT unsigned long long get_1AS_time_invers(gPtpTimeDataStruct* data,
                                                  unsigned long long asTimeNs) {
    const long double rate = effectiveRate(*data);
    const double base = timeAtSystemZero(*data, rate);
    const double difference = static_cast<double>(asTimeNs) - base;
    return doubleToU64(difference / static_cast<double>(rate));
}

ZEB_PLAIN_NAME(unsigned long long, get_1AS_time,
               (gPtpTimeDataStruct * data, long long systemTimeNs),
               "_Z12get_1AS_timeP18gPtpTimeDataStructx");
ZEB_PLAIN_NAME(unsigned long long, get_1AS_time_invers,
               (gPtpTimeDataStruct * data, unsigned long long asTimeNs),
               "_Z19get_1AS_time_inversP18gPtpTimeDataStructy");
