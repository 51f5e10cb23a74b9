#pragma once

#include "tools/tsyn/daemon/SegmentSource.h"
#include "tools/tsyn/doctor/Evidence.h"

namespace tsyn::doctor {

/** Reads the published record of an interface before and after the listening; writes nothing. */
class RecordWitness {
public:
    RecordWitness(const std::string& interfaceName, RecordFacts& facts);

    void noteBefore();
    void noteAfter();

private:
    void noteOwner();
    std::optional<Look> read();

    RecordFacts& facts_;
    SegmentSource source_;
    double beforeS_ = 0.0;
    Look last_;
};

}  // namespace tsyn::doctor
