#pragma once

#include "tools/tsyn/daemon/QualityReport.h"
#include "tools/tsyn/doctor/Evidence.h"

/** What happened in the record between its two looks, which have to be there. */
namespace tsyn::doctor {

/** How often a counter rose while it was listened. */
template <typename Read>
unsigned int rise(const Evidence& evidence, Read read) {
    const unsigned int before = read(*evidence.record.before);
    const unsigned int after = read(*evidence.record.after);
    return after - before;
}

template <typename Member>
unsigned int qualityRise(const Evidence& evidence, Member member) {
    return rise(evidence, [member](const gPtpTimeDataStruct& record) {
        const auto quality = qualityOf(record);
        return quality ? static_cast<unsigned int>((*quality).*member) : 0U;
    });
}

}  // namespace tsyn::doctor
