#include "tools/tsyn/plot/Series.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

#include "base/Extended80.h"

namespace tsyn {
namespace {

constexpr double kNothing = std::numeric_limits<double>::quiet_NaN();
/** Larger corrections are steps of a clock, not errors of its time. */
constexpr double kStepNs = 1e6;
/** Counters are told of at least so long a time, so that single frames make no spikes. */
constexpr double kCountedS = 1.0;
constexpr std::size_t kStepsCounter = 3;

template <typename Value>
double orNothing(const std::optional<Value>& value) {
    return value ? static_cast<double>(*value) : kNothing;
}

/** Of any two times that a file may tell. */
double differenceNs(long long fromNs, long long toNs) {
    return static_cast<double>(
        signedDiff(static_cast<unsigned long long>(toNs), static_cast<unsigned long long>(fromNs)));
}

double secondsBetween(long long fromNs, long long toNs) {
    return kSecondsPerNs * differenceNs(fromNs, toNs);
}

/** By how much the line of the later sample is ahead of the earlier one's at its anchor. */
double correctionNs(const RecordedSample& before, const RecordedSample& after) {
    const double elapsedNs = differenceNs(*before.localNs, *after.localNs);
    return differenceNs(*after.offsetNs, *before.offsetNs) -
           1e-9 * before.ratePpb.value_or(0.0) * elapsedNs;
}

bool hasTime(const RecordedSample& sample) {
    return sample.localNs.value_or(0) != 0 && sample.offsetNs &&
           sample.state != RecordedState::kNoMaster;
}

bool beginsAnew(const RecordedSample& before, const RecordedSample& after) {
    return after.localNs < before.localNs || after.counters[0] < before.counters[0] ||
           after.counters[kStepsCounter] != before.counters[kStepsCounter] ||
           after.master != before.master;
}

/** Of what lies between two samples that are further apart, nothing is known. */
double longestPauseS(const PlotSource& source) {
    constexpr double kGapIntervals = 5.0;
    std::vector<double> intervals;
    for (std::size_t i = 1; i < source.samples.size(); ++i) {
        intervals.push_back(
            secondsBetween(source.samples[i - 1].systemNs, source.samples[i].systemNs));
    }
    return std::max(2.5, kGapIntervals * quantile(std::move(intervals), 0.5));
}

/** Tells sample by sample whether it only repeats what a daemon left behind that has ended. */
class Endings {
public:
    explicit Endings(const std::vector<RecordedEvent>& events) : events_(events) {}

    bool isAfterOne(const RecordedSample& sample) {
        for (; next_ < events_.size() && events_[next_].systemNs <= sample.systemNs; ++next_) {
            const std::string& kind = events_[next_].kind;
            hasEnded_ = kind == "ended" || (hasEnded_ && kind != "restart");
        }
        return hasEnded_;
    }

private:
    const std::vector<RecordedEvent>& events_;
    std::size_t next_ = 0;
    bool hasEnded_ = false;
};

class SeriesMaker {
public:
    SeriesMaker(const PlotSource& source, std::size_t index, long long originNs)
        : source_(source), index_(index), originNs_(originNs), gapS_(longestPauseS(source)) {}

    SourceSeries make(double shiftS) {
        takeMedians();
        for (const RecordedSample& sample : source_.samples) {
            add(sample);
        }
        finishOffset();
        takeCounters();
        takeTruth(shiftS);
        return std::move(result_);
    }

private:
    void takeMedians();
    void add(const RecordedSample& sample);
    void addAnchor(const RecordedSample& sample, double atS);
    void finishOffset();
    void takeCounters();
    Series counted(std::size_t counter) const;
    void takeTruth(double shiftS);
    Series named(const std::string& name) const { return {name, index_, {}, {}}; }
    void part(double atS);

    const PlotSource& source_;
    std::size_t index_;
    long long originNs_;
    double gapS_;
    double latestS_ = -std::numeric_limits<double>::infinity();
    const RecordedSample* first_ = nullptr;  ///< with a time
    const RecordedSample* anchor_ = nullptr;
    std::vector<std::vector<double>> anchorTimes_;
    SourceSeries result_;
};

void SeriesMaker::takeMedians() {
    std::vector<double> rates;
    std::vector<double> phcRates;
    for (const RecordedSample& sample : source_.samples) {
        if (hasTime(sample)) {
            rates.push_back(orNothing(sample.ratePpb));
            phcRates.push_back(orNothing(sample.phcRatePpb));
        }
    }
    result_.medianRatePpb = quantile(std::move(rates), 0.5);
    result_.medianPhcRatePpb = quantile(std::move(phcRates), 0.5);
    result_.correction = named("correction");
    result_.offset = named("offset");
    result_.bound = named("bound");
    result_.rate = named("grandmaster / PHC");
    result_.phcRate = named("PHC / system");
    result_.delay = named("delay");
    result_.age = named("age");
    result_.error = named("true error");
    result_.halfWidth = named("bounds");
    result_.outside = named("truth outside the bounds");
}

/** Lines are not drawn over times of which nothing is known. */
void SeriesMaker::part(double atS) {
    for (Series* series : {&result_.correction, &result_.bound, &result_.rate, &result_.phcRate,
                           &result_.delay, &result_.age}) {
        if (!series->isEmpty()) {
            series->add(atS, kNothing);
        }
    }
}

void SeriesMaker::add(const RecordedSample& sample) {
    const double atS = std::max(secondsBetween(originNs_, sample.systemNs), latestS_);
    if (atS - latestS_ > gapS_) {
        part(latestS_);
    }
    latestS_ = atS;
    result_.bound.add(atS, orNothing(sample.boundNs));
    if (!hasTime(sample)) {
        return;
    }
    if (sample.ratePpb && sample.phcRatePpb) {
        result_.rate.add(atS, *sample.ratePpb - result_.medianRatePpb);
        result_.phcRate.add(atS, *sample.phcRatePpb - result_.medianPhcRatePpb);
    }
    if (sample.delayNs) {
        result_.delay.add(atS, static_cast<double>(*sample.delayNs));
    }
    if (sample.ageNs) {
        result_.age.add(atS, 1e-6 * static_cast<double>(*sample.ageNs));
    }
    addAnchor(sample, atS);
}

void SeriesMaker::addAnchor(const RecordedSample& sample, double atS) {
    if (anchor_ != nullptr && anchor_->localNs == sample.localNs) {
        anchor_ = &sample;
        return;
    }
    bool isNew = anchor_ == nullptr || beginsAnew(*anchor_, sample);
    if (!isNew) {
        const double correction = correctionNs(*anchor_, sample);
        isNew = std::fabs(correction) > kStepNs;
        result_.correction.add(atS, isNew ? kNothing : correction);
    }
    anchor_ = &sample;
    first_ = first_ == nullptr ? &sample : first_;
    if (isNew) {
        result_.phase.emplace_back();
        anchorTimes_.emplace_back();
    }
    const RecordedSample& first = *first_;
    PhaseRun& run = result_.phase.back();
    run.atS.push_back(secondsBetween(*first.localNs, *sample.localNs));
    run.phaseNs.push_back(differenceNs(*first.offsetNs, *sample.offsetNs));
    anchorTimes_.back().push_back(atS);
}

/** The straight line of least squares, taken off a run. */
void addWithoutLine(Series& series, const PhaseRun& run, const std::vector<double>& atS) {
    const auto count = static_cast<double>(run.atS.size());
    double meanS = 0.0;
    double meanNs = 0.0;
    for (std::size_t i = 0; i < run.atS.size(); ++i) {
        meanS += (run.atS[i] - run.atS.front()) / count;
        meanNs += (run.phaseNs[i] - run.phaseNs.front()) / count;
    }
    double squares = 0.0;
    double products = 0.0;
    for (std::size_t i = 0; i < run.atS.size(); ++i) {
        const double s = run.atS[i] - run.atS.front() - meanS;
        squares += s * s;
        products += s * (run.phaseNs[i] - run.phaseNs.front() - meanNs);
    }
    const double slope = squares > 0.0 ? products / squares : 0.0;
    for (std::size_t i = 0; i < run.atS.size(); ++i) {
        series.add(atS[i], run.phaseNs[i] - run.phaseNs.front() - meanNs -
                               slope * (run.atS[i] - run.atS.front() - meanS));
    }
}

void SeriesMaker::finishOffset() {
    for (std::size_t i = 0; i < result_.phase.size(); ++i) {
        if (!result_.offset.isEmpty()) {
            result_.offset.add(anchorTimes_[i].front(), kNothing);
        }
        addWithoutLine(result_.offset, result_.phase[i], anchorTimes_[i]);
    }
}

Series SeriesMaker::counted(std::size_t counter) const {
    std::string name = kCounterNames.at(counter);
    std::replace(name.begin(), name.end(), '_', ' ');
    Series series = named(name);
    const RecordedSample* from = nullptr;
    bool hasCounted = false;
    for (const RecordedSample& sample : source_.samples) {
        const double spanS =
            from == nullptr ? 0.0 : secondsBetween(from->systemNs, sample.systemNs);
        if (from != nullptr && spanS < kCountedS && spanS >= 0.0) {
            continue;
        }
        const bool isGap = spanS > gapS_;
        if (isGap && !series.isEmpty()) {
            series.add(series.atS.back(), kNothing);
        }
        // Of a daemon that began anew, nobody knows how much it counted before.
        if (from != nullptr && !isGap && spanS > 0.0 && sample.counters[0] >= from->counters[0]) {
            const unsigned int count = sample.counters.at(counter) - from->counters.at(counter);
            series.add(secondsBetween(originNs_, sample.systemNs), count / spanS);
            hasCounted = hasCounted || count != 0;
        }
        from = &sample;
    }
    return hasCounted ? series : Series();
}

void SeriesMaker::takeCounters() {
    for (std::size_t i = 0; i < kRecordedCounters; ++i) {
        Series series = counted(i);
        if (!series.isEmpty()) {
            result_.counters.push_back(std::move(series));
        }
    }
}

void SeriesMaker::takeTruth(double shiftS) {
    PhaseRun run;
    for (const TrueSample& sample : source_.truth) {
        const double atS = sample.atS + shiftS;
        if (!sample.isValid) {
            result_.error.add(atS, kNothing);
            continue;
        }
        result_.error.add(atS, sample.errorNs);
        run.atS.push_back(sample.atS);
        run.phaseNs.push_back(sample.errorNs);
        result_.halfWidth.add(atS, sample.hasBounds ? sample.widthNs / 2.0 : kNothing);
        if (sample.outsideNs > 0.0) {
            result_.outside.add(atS, sample.errorNs);
        }
    }
    if (!run.atS.empty()) {
        result_.phase.push_back(std::move(run));
    }
}

}  // namespace

SourceSeries seriesOf(const PlotSource& source, std::size_t index, long long originNs,
                      double shiftS) {
    return SeriesMaker(source, index, originNs).make(shiftS);
}

Series thinned(const Series& series, std::size_t parts) {
    if (series.atS.size() <= 2 * parts) {
        return series;
    }
    Series result{series.name, series.source, {}, {}};
    const double beginS = series.atS.front();
    const double partS = (series.atS.back() - beginS) / static_cast<double>(parts);
    const auto partOf = [&](std::size_t i) { return std::floor((series.atS[i] - beginS) / partS); };
    for (std::size_t at = 0; at < series.atS.size();) {
        const double here = partOf(at);
        std::size_t least = at;
        std::size_t most = at;
        bool isParted = false;
        for (; at < series.atS.size() && partOf(at) == here; ++at) {
            const double value = series.values[at];
            isParted = isParted || std::isnan(value);
            // NaN compares false: a number takes its place.
            least = !(series.values[least] <= value) && !std::isnan(value) ? at : least;
            most = !(series.values[most] >= value) && !std::isnan(value) ? at : most;
        }
        for (const std::size_t i : {std::min(least, most), std::max(least, most)}) {
            result.add(series.atS[i], series.values[i]);
        }
        if (isParted && !std::isnan(result.values.back())) {
            result.add(result.atS.back(), kNothing);
        }
    }
    return result;
}

double quantile(std::vector<double> values, double part) {
    values.erase(std::remove_if(values.begin(), values.end(),
                                [](double value) { return std::isnan(value); }),
                 values.end());
    if (values.empty()) {
        return 0.0;
    }
    std::sort(values.begin(), values.end());
    const double place = part * static_cast<double>(values.size() - 1);
    const auto below = static_cast<std::size_t>(place);
    const std::size_t above = std::min(below + 1, values.size() - 1);
    return values[below] + (place - static_cast<double>(below)) * (values[above] - values[below]);
}

std::vector<StateBand> stateBands(const PlotSource& source, long long originNs) {
    const double gapS = longestPauseS(source);
    Endings endings(source.events);
    std::vector<StateBand> bands;
    double latestS = -std::numeric_limits<double>::infinity();
    for (const RecordedSample& sample : source.samples) {
        const double atS = std::max(secondsBetween(originNs, sample.systemNs), latestS);
        const RecordedState state =
            endings.isAfterOne(sample) ? RecordedState::kLost : sample.state;
        const bool isParted = atS - latestS > gapS;
        latestS = atS;
        if (!isParted) {
            bands.back().toS = atS;
        }
        if (isParted || bands.back().state != state) {
            bands.push_back({atS, atS, state});
        }
    }
    return bands;
}

}  // namespace tsyn
