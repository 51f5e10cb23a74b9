#pragma once

#include <deque>
#include <optional>

#include "tools/tsyn/daemon/Look.h"

namespace tsyn {

/** Values of the latest seconds, the oldest first; nothing where there was none. */
using Series = std::deque<std::optional<double>>;

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

    const Series& offset() const { return offset_; }
    const Series& moved() const { return moved_; }
    const Series& bound() const { return bound_; }
    const Series& rate() const { return rate_; }
    const Series& delay() const { return delay_; }

private:
    Series offset_;
    Series moved_;
    Series bound_;
    Series rate_;
    Series delay_;
};

}  // namespace tsyn
