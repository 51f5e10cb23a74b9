#include "tools/tsyn/daemon/Look.h"

#include <algorithm>
#include <ctime>

#include "base/Extended80.h"
#include "tools/tsyn/daemon/QualityReport.h"

namespace tsyn {
namespace {

template <std::size_t kSize>
bool isZeroFrom(const unsigned char (&bytes)[kSize], std::size_t first) {
    return std::all_of(bytes + first, bytes + kSize, [](unsigned char byte) { return byte == 0; });
}

}  // namespace

gPtpTimeDataStruct withSoftOffset(const gPtpTimeDataStruct& record) {
    gPtpTimeDataStruct told = record;
    const bool isDeployedMaster = record.systemTime != 0 && !qualityOf(record);
    if (isDeployedMaster) {
        told.masterOffset =
            static_cast<long long>(0 - static_cast<unsigned long long>(record.softOffset));
    }
    return told;
}

Look lookNow(const gPtpTimeDataStruct& record) {
    Look look;
    look.record = withSoftOffset(record);
    look.quality = qualityOf(record);
    look.systemNs = systemNowNs();
    look.monotonicS = monotonicNowS();
    return look;
}

bool isTimeRecord(const gPtpTimeDataStruct& record) {
    return isZeroFrom(record.unused92, 0) && isZeroFrom(record.rateRatio1, kExtendedBytes) &&
           isZeroFrom(record.rateRatio2, kExtendedBytes) &&
           isZeroFrom(record.fitSlope, kExtendedBytes) &&
           isZeroFrom(record.pdelayRatio, kExtendedBytes) && record.sequenceId <= 0xFFFF;
}

long long systemNowNs() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

double monotonicNowS() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

}  // namespace tsyn
