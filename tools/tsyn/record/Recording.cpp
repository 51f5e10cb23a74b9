#include "tools/tsyn/record/Recording.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "base/Extended80.h"
#include "include/gPtpExactTime.h"
#include "tools/tsyn/daemon/QualityReport.h"

namespace tsyn {

const std::array<const char*, kRecordedCounters> kCounterNames = {
    "accepted_sync",    "rejected_sync", "incomplete_pdelay", "steps",          "ignored_frames",
    "unstamped_frames", "stray_stamps",  "unused_exchanges",  "refused_samples"};

namespace {

constexpr std::array<const char*, kRecordedStates> kStateNames = {
    "no-master", "acquiring", "synchronised", "holdover", "lost", "stale", "sending"};
constexpr const char* kColumns[] = {"system_ns", "time_ns",          "state",    "local_ns",
                                    "offset_ns", "system_offset_ns", "bound_ns", "growth_ppb",
                                    "rate_ppb",  "phc_rate_ppb",     "delay_ns", "sequence_id",
                                    "age_ns"};
constexpr long long kNoTime = std::numeric_limits<long long>::min();
constexpr unsigned int kNoBound = ~0U;
/** A daemon that tells no state is stale when it has been silent for so long. */
constexpr double kStaleS = 1.0;

/** Nothing before there is a rate. */
std::optional<double> ppbOf(const unsigned char* storage) {
    const long double rate = loadExtended(storage);
    const auto ppb = static_cast<double>(1e9L * (rate - 1.0L));
    return rate != 0.0L && std::isfinite(ppb) ? std::optional(ppb) : std::nullopt;
}

/** A deployed slave takes its first pair against the epoch, and has no rate of its card then. */
bool isFirstPair(const gPtpTimeDataStruct& record) {
    constexpr unsigned int kFewSyncs = 8;
    return record.systemTime == 0 && record.acceptedSync < kFewSyncs &&
           loadExtended(record.rateRatio2) == 1.0L;
}

bool rateIsReal(const gPtpTimeDataStruct& record) {
    const long double rate = loadExtended(record.rateRatio1);
    return rate >= kSlowestMasterRate && rate <= kFastestMasterRate;
}

/** Only a master publishes the system time of a cross-timestamp. */
RecordedState stateByRecord(const gPtpTimeDataStruct& record, double sinceSyncS) {
    if (record.systemTime == 0 && record.acceptedSync == 0) {
        return RecordedState::kNoMaster;
    }
    if (sinceSyncS > kStaleS) {
        return RecordedState::kStale;
    }
    if (record.systemTime != 0) {
        return RecordedState::kSending;
    }
    return rateIsReal(record) && !isFirstPair(record) ? RecordedState::kSynchronised
                                                      : RecordedState::kAcquiring;
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : "+") + name;
    }
    return text;
}

void takeQuality(RecordedSample& sample, const gPtpTimeQuality& quality) {
    const bool hasEnd =
        quality.state == TSYN_STATE_SYNCHRONISED || quality.state == TSYN_STATE_HOLDOVER;
    const bool isVoid = hasEnd && sample.systemNs > quality.voidAfterNs;
    // What a writer killed half-way or a newer one left is not taken for a state of ours.
    const unsigned char told = std::min<unsigned char>(quality.state, TSYN_STATE_LOST);
    sample.state = isVoid ? RecordedState::kLost : static_cast<RecordedState>(told);
    if (hasEnd && !isVoid && quality.boundNs != kNoBound) {
        const auto ageNs = static_cast<double>(std::max(0LL, sample.ageNs.value_or(0)));
        const double grown = ageNs * quality.boundGrowthPpb / 1e9;
        sample.boundNs = quality.boundNs + static_cast<long long>(std::ceil(grown));
        sample.growthPpb = quality.boundGrowthPpb;
    }
    sample.master = identityText(quality) + "-" + std::to_string(quality.masterPort);
    sample.flags = joined(flagNames(quality.flags));
    const unsigned int counted[] = {quality.stepCount,       quality.ignoredFrames,
                                    quality.unstampedFrames, quality.strayStamps,
                                    quality.unusedExchanges, quality.refusedSamples};
    std::copy(std::begin(counted), std::end(counted), sample.counters.begin() + 3);
}

void append(std::string& line, const std::string& field) {
    line += ',';
    line += field;
}

void append(std::string& line, std::optional<long long> value) {
    append(line, value ? std::to_string(*value) : std::string());
}

void appendPpb(std::string& line, std::optional<double> ppb) {
    char text[32] = "";
    if (ppb) {
        std::snprintf(text, sizeof text, "%.3f", *ppb);
    }
    append(line, std::string(text));
}

std::vector<std::string> fieldsOf(const std::string& line) {
    std::vector<std::string> fields;
    std::size_t at = 0;
    for (std::size_t comma = line.find(','); comma != std::string::npos;
         comma = line.find(',', at)) {
        fields.push_back(line.substr(at, comma - at));
        at = comma + 1;
    }
    fields.push_back(line.substr(at));
    return fields;
}

template <typename Value>
bool toNumber(const std::string& text, Value& value) {
    char* end = nullptr;
    if constexpr (std::is_same_v<Value, double>) {
        value = std::strtod(text.c_str(), &end);
        return end != text.c_str() && *end == '\0' && std::isfinite(value);
    } else {
        value = static_cast<Value>(std::strtoll(text.c_str(), &end, 10));
        return end != text.c_str() && *end == '\0';
    }
}

template <typename Value>
bool toNumber(const std::string& text, std::optional<Value>& value) {
    Value number = 0;
    if (text.empty()) {
        return true;
    }
    if (!toNumber(text, number)) {
        return false;
    }
    value = number;
    return true;
}

bool takeState(RecordedSample& sample, const std::string& text) {
    const auto* const found = std::find(kStateNames.begin(), kStateNames.end(), text);
    if (found == kStateNames.end()) {
        return false;
    }
    sample.state = static_cast<RecordedState>(found - kStateNames.begin());
    return true;
}

bool takeCounter(RecordedSample& sample, const std::string& name, const std::string& text) {
    for (std::size_t i = 0; i < kRecordedCounters; ++i) {
        if (name == kCounterNames[i]) {
            return toNumber(text, sample.counters[i]);
        }
    }
    return true;  // a column of a later version
}

bool takeNumber(RecordedSample& sample, const std::string& name, const std::string& text) {
    if (name == "system_ns") {
        return toNumber(text, sample.systemNs);
    }
    if (name == "time_ns") {
        return toNumber(text, sample.timeNs);
    }
    if (name == "local_ns") {
        return toNumber(text, sample.localNs);
    }
    if (name == "offset_ns") {
        return toNumber(text, sample.offsetNs);
    }
    if (name == "system_offset_ns") {
        return toNumber(text, sample.systemOffsetNs);
    }
    if (name == "bound_ns") {
        return toNumber(text, sample.boundNs);
    }
    if (name == "growth_ppb") {
        return toNumber(text, sample.growthPpb);
    }
    if (name == "rate_ppb") {
        return toNumber(text, sample.ratePpb);
    }
    if (name == "phc_rate_ppb") {
        return toNumber(text, sample.phcRatePpb);
    }
    if (name == "delay_ns") {
        return toNumber(text, sample.delayNs);
    }
    if (name == "sequence_id") {
        return toNumber(text, sample.sequenceId);
    }
    return name == "age_ns" ? toNumber(text, sample.ageNs) : takeCounter(sample, name, text);
}

bool takeField(RecordedSample& sample, const std::string& name, const std::string& text) {
    if (name == "state") {
        return takeState(sample, text);
    }
    if (name == "master") {
        sample.master = text;
        return true;
    }
    if (name == "flags") {
        sample.flags = text;
        return true;
    }
    return takeNumber(sample, name, text);
}

/** The record is packed: its members are copied, since an optional takes a reference. */
void takeAnchor(RecordedSample& sample, const gPtpTimeDataStruct& record) {
    sample.localNs = static_cast<long long>(record.localTime);
    sample.offsetNs = static_cast<long long>(record.masterOffset);
    sample.systemOffsetNs = static_cast<long long>(record.systemOffset);
    if (!isFirstPair(record)) {
        sample.ratePpb = ppbOf(record.rateRatio1);
        sample.phcRatePpb = ppbOf(record.rateRatio2);
    }
    sample.ageNs =
        signedDiff(static_cast<unsigned long long>(sample.systemNs),
                   record.localTime + static_cast<unsigned long long>(record.systemOffset));
}

}  // namespace

const char* recordedStateName(RecordedState state) {
    return kStateNames.at(static_cast<std::size_t>(state));
}

RecordedSample sampleOf(const gPtpTimeDataStruct& record, long long systemNs, double sinceSyncS) {
    RecordedSample sample;
    sample.systemNs = systemNs;
    const long long timeNs = gPtpTimeAtSystem(&record, systemNs);
    if (timeNs != kNoTime) {
        sample.timeNs = timeNs;
    }
    if (record.localTime != 0) {
        takeAnchor(sample, record);
    }
    if (record.linkDelay != 0) {
        sample.delayNs = static_cast<long long>(record.linkDelay);
    }
    if (record.acceptedSync != 0 || record.systemTime != 0) {
        sample.sequenceId = static_cast<long long>(record.sequenceId);
    }
    sample.counters[0] = record.acceptedSync;
    sample.counters[1] = record.rejectedSync;
    sample.counters[2] = record.incompletePdelay;
    if (const auto quality = qualityOf(record)) {
        takeQuality(sample, *quality);
    } else {
        sample.state = stateByRecord(record, sinceSyncS);
    }
    return sample;
}

std::string recordingColumns() {
    std::string line;
    for (const char* name : kColumns) {
        line += line.empty() ? "" : ",";
        line += name;
    }
    for (const char* name : kCounterNames) {
        append(line, std::string(name));
    }
    return line + ",master,flags";
}

std::string recordingLine(const RecordedSample& sample) {
    std::string line = std::to_string(sample.systemNs);
    append(line, sample.timeNs);
    append(line, std::string(recordedStateName(sample.state)));
    append(line, sample.localNs);
    append(line, sample.offsetNs);
    append(line, sample.systemOffsetNs);
    append(line, sample.boundNs);
    append(line, sample.growthPpb);
    appendPpb(line, sample.ratePpb);
    appendPpb(line, sample.phcRatePpb);
    append(line, sample.delayNs);
    append(line, sample.sequenceId);
    append(line, sample.ageNs);
    for (const unsigned int counter : sample.counters) {
        append(line, static_cast<long long>(counter));
    }
    append(line, sample.master);
    append(line, sample.flags);
    return line;
}

bool RecordingParser::setColumns(const std::string& line) {
    columns_ = fieldsOf(line);
    const auto has = [this](const char* name) {
        return std::find(columns_.begin(), columns_.end(), name) != columns_.end();
    };
    return has("system_ns") && has("state") && has("local_ns") && has("offset_ns");
}

std::optional<RecordedSample> RecordingParser::parse(const std::string& line) const {
    const std::vector<std::string> fields = fieldsOf(line);
    if (fields.size() != columns_.size()) {
        return {};
    }
    RecordedSample sample;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (!takeField(sample, columns_[i], fields[i])) {
            return {};
        }
    }
    return sample;
}

}  // namespace tsyn
