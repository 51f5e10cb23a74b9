#include "tools/tsyn/watch/History.h"

#include "tools/tsyn/daemon/DaemonState.h"

namespace tsyn {
namespace {

void append(RecentValues& series, std::optional<double> value) {
    series.push_back(value);
    if (series.size() > History::kLength) {
        series.pop_front();
    }
}

std::optional<double> ifKnown(bool isKnown, long long value) {
    return isKnown ? std::optional(static_cast<double>(value)) : std::nullopt;
}

}  // namespace

std::optional<double> movedNs(const Look& before, const Look& after) {
    // At one moment of the system clock, so that it does not matter how good that one is.
    const std::optional<long long> expected = timeAt(before, after.systemNs);
    const std::optional<long long> told = timeAt(after, after.systemNs);
    if (!expected || !told) {
        return {};
    }
    return static_cast<double>(*told - *expected);
}

void History::add(const Look* before, const Look& look) {
    const std::optional<double> ppm = ratePpm(look.record);
    append(offset_, ifKnown(ppm.has_value(), look.record.masterOffset));
    append(moved_, before != nullptr ? movedNs(*before, look) : std::nullopt);
    append(bound_, std::nullopt);
    append(rate_, ppm);
    append(delay_, ifKnown(look.record.linkDelay != 0, look.record.linkDelay));
}

void History::setBound(std::optional<long long> boundNs) {
    bound_.back() = ifKnown(boundNs.has_value(), boundNs.value_or(0));
}

void History::addNothing() {
    for (RecentValues* series : {&offset_, &moved_, &bound_, &rate_, &delay_}) {
        append(*series, std::nullopt);
    }
}

}  // namespace tsyn
