#include "tools/tsyn/daemon/LastPair.h"

#include "base/Extended80.h"

namespace tsyn {
namespace {

/** Corrections of bridges on the way stay below this; a refused pair is off by far more. */
constexpr unsigned long long kConsistentNs = 1000000;

}  // namespace

/** A refused pair moves localTime and originTime but not masterOffset, so that they disagree. */
bool lastPairWasTaken(const gPtpTimeDataStruct& record) {
    const long double ratio = loadExtended(record.rateRatio1);
    const unsigned long long masterTime =
        record.localTime - static_cast<unsigned long long>(record.masterOffset);
    const unsigned long long difference = masterTime - record.originTime;
    const unsigned long long distance = difference >> 63 ? 0 - difference : difference;
    return ratio >= kSlowestMasterRate && ratio <= kFastestMasterRate && distance <= kConsistentNs;
}

}  // namespace tsyn
