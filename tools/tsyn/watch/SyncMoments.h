#pragma once

#include <optional>

#include "tools/tsyn/daemon/Look.h"

namespace tsyn {

/** When to look at a record so that each Sync shows with as few looks as that takes: once between
 *  two of them, as soon as their interval is known. Seconds of Look::monotonicS. */
class SyncMoments {
public:
    /** sharesClock: the age of a Sync can be told; otherwise looks are simply frequent. */
    explicit SyncMoments(bool sharesClock) : sharesClock_(sharesClock) {}

    void add(const Look& look);
    double nextS(double nowS) const;

private:
    void learn(double syncS, long long syncNs, unsigned short count);

    bool sharesClock_;
    std::optional<Look> before_; /**< the first look at the latest Sync */
    long long syncNs_ = 0;       /**< its system time */
    double syncS_ = 0.0;         /**< the moment that the next ones are reckoned from */
    std::optional<double> intervalS_;
};

}  // namespace tsyn
