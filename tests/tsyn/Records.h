#pragma once

#include <cstring>

#include "base/Extended80.h"
#include "tools/tsyn/daemon/Look.h"
#include "tools/tsyn/daemon/Owner.h"

/** Records as daemons publish them, for tests of those who look at them. */
namespace records {

constexpr long long kSecond = 1'000'000'000;
/** System time of the first Sync: 2026-01-01T00:00:00 UTC. */
constexpr long long kStart = 1'767'225'600 * kSecond;
/** The process of a daemon that lives. */
const tsyn::Owner kOwner{77, tsyn::Owner::Life::kLives, "tsyn"};

/** A deployed slave on a card that is 1.5 s ahead of its host's clock, after a pair that was used
 *  at that second. */
inline gPtpTimeDataStruct slave(unsigned int syncs, long long second) {
    gPtpTimeDataStruct record{};
    record.acceptedSync = syncs;
    record.sequenceId = syncs;
    record.linkDelay = 500;
    record.masterOffset = 1'500'000'000;
    record.systemOffset = -1'500'000'000;
    record.localTime = static_cast<unsigned long long>(kStart + second * kSecond + 1'500'000'000);
    record.originTime = static_cast<unsigned long long>(kStart + second * kSecond - 500);
    storeExtended(record.rateRatio1, 1.0L - 37e-6L);
    storeExtended(record.rateRatio2, 1.0L / (1.0L - 37e-6L));
    return record;
}

inline gPtpTimeDataStruct master(unsigned int sequenceId, long long second) {
    gPtpTimeDataStruct record = slave(0, second);
    record.sequenceId = sequenceId;
    record.masterOffset = 0;
    record.systemTime = static_cast<unsigned long long>(kStart + second * kSecond);
    return record;
}

inline gPtpTimeQuality quality(unsigned char state, long long voidAtSecond) {
    gPtpTimeQuality quality{};
    quality.magic = kTimeQualityMagic;
    quality.layout = kTimeQualityLayout;
    quality.state = state;
    quality.boundNs = 150;
    quality.boundGrowthPpb = 100;
    quality.ownerPid = 77;
    quality.voidAfterNs = kStart + voidAtSecond * kSecond;
    return quality;
}

inline gPtpTimeDataStruct with(gPtpTimeDataStruct record, const gPtpTimeQuality& quality) {
    std::memcpy(record.unused172, &quality, sizeof quality);
    return record;
}

/** What a reader sees of it at that second. */
inline tsyn::Look lookAt(const gPtpTimeDataStruct& record, double second) {
    tsyn::Look look = tsyn::lookNow(record);
    look.systemNs = kStart + static_cast<long long>(second * 1e9);
    look.monotonicS = second;
    return look;
}

}  // namespace records
