#pragma once

#include <deque>
#include <optional>

#include "tools/tsyn/daemon/Look.h"

namespace tsyn {

/** Values of the latest seconds, the oldest first; nothing where there was none. */
using RecentValues = std::deque<std::optional<double>>;

/** How far the time line of a later look lies beside that of an earlier one, ns: what the Syncs in
 *  between changed. Nothing while one of them has no time. */
std::optional<double> movedNs(const Look& before, const Look& after);

/** What a daemon published over the latest minute, one value a look. */
class History {
public:
    static constexpr std::size_t kLength = 60;

    /** before: the previous look at the same daemon, or null. */
    void add(const Look* before, const Look& look);
    /** Of the look that was just added, which only its state tells. */
    void setBound(std::optional<long long> boundNs);
    void addNothing();

    const RecentValues& offset() const { return offset_; }
    const RecentValues& moved() const { return moved_; }
    const RecentValues& bound() const { return bound_; }
    const RecentValues& rate() const { return rate_; }
    const RecentValues& delay() const { return delay_; }

private:
    RecentValues offset_;
    RecentValues moved_;
    RecentValues bound_;
    RecentValues rate_;
    RecentValues delay_;
};

}  // namespace tsyn
