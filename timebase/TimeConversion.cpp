#include "timebase/TimeConversion.h"

#include <cmath>

#include "base/Exports.h"
#include "base/Extended80.h"

namespace {

unsigned long long bits(long long value) {
    return static_cast<unsigned long long>(value);
}

long double effectiveRate(const gPtpTimeDataStruct& data) {
    return loadExtended(data.rateRatio1) * loadExtended(data.rateRatio2);
}

/** |A - B| + (-A - C) * R: the time that system time 0 maps to. The absolute value stays, since
 *  deployed readers of the record compute the same. */
double timeAtSystemZero(const gPtpTimeDataStruct& data, long double rate) {
    const unsigned long long localTime = data.localTime;
    const long double synchronised =
        std::fabs(static_cast<long double>(signedDiff(localTime, bits(data.masterOffset))));
    const long double elapsed =
        static_cast<long double>(static_cast<long long>(0 - localTime - bits(data.systemOffset)));
    return static_cast<double>(synchronised + elapsed * rate);
}

}  // namespace

ZEB_ENTRY unsigned long long get_1AS_time(gPtpTimeDataStruct* data, long long systemTimeNs) {
    const long double rate = effectiveRate(*data);
    const double base = timeAtSystemZero(*data, rate);
    const double scaled = static_cast<double>(rate) * static_cast<double>(systemTimeNs);
    return doubleToU64(base + scaled);
}

ZEB_ENTRY unsigned long long get_1AS_time_invers(gPtpTimeDataStruct* data,
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

long long currentTimeNs(const gPtpTimeDataStruct& record, unsigned long long systemNs) {
    const unsigned long long reference = record.localTime;
    const long long elapsed = signedDiff(systemNs, reference + bits(record.systemOffset));
    const long long phcElapsed =
        toS64(static_cast<long double>(elapsed) * loadExtended(record.rateRatio2));
    const long long sinceSync =
        toS64(static_cast<long double>(phcElapsed) * loadExtended(record.rateRatio1));
    return static_cast<long long>(reference - bits(record.masterOffset) + bits(sinceSync) +
                                  bits(record.softOffset));
}

unsigned long long referenceTimeNs(long long phcNs, long long masterOffset, long long systemOffset,
                                   long double rate, long long cpuNs) {
    const double k = static_cast<double>(rate);
    const double synchronised =
        std::fabs(static_cast<double>(signedDiff(bits(phcNs), bits(masterOffset))));
    const double elapsed =
        static_cast<double>(static_cast<long long>(0 - bits(phcNs) - bits(systemOffset)));
    const double scaled = elapsed * k;
    const double atZero = synchronised + scaled;
    const double cpu = k * static_cast<double>(cpuNs);
    return doubleToU64(atZero + cpu);
}

long long responseCorrectionNs(const gPtpTimeDataStruct& record, unsigned long long txNs) {
    const unsigned long long phcNs = record.localTime;
    const long double sinceCrossTimestamp = static_cast<long double>(signedDiff(txNs, phcNs));
    const long long scaled = toS64(loadExtended(record.rateRatio1) * sinceCrossTimestamp);
    return static_cast<long long>(bits(scaled) + phcNs - bits(record.masterOffset));
}
