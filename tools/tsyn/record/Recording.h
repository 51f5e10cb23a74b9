#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "include/gPtpTimeQuality.h"

namespace tsyn {

/** What a slave or master is at; the first five are those of enum TSynTimeState. The others are
 * told of daemons that tell no state themselves. */
enum class RecordedState {
    kNoMaster,
    kAcquiring,
    kSynchronised,
    kHoldover,
    kLost,
    kStale,
    kSending
};
constexpr std::size_t kRecordedStates = 7;

const char* recordedStateName(RecordedState state);

constexpr std::size_t kRecordedCounters = 9;
/** As their columns are called, in their order. */
extern const std::array<const char*, kRecordedCounters> kCounterNames;

/** One line of a recording: a daemon's record as it was at a system time. */
struct RecordedSample {
    long long systemNs = 0;
    std::optional<long long> timeNs;  ///< grandmaster time at that moment
    RecordedState state = RecordedState::kNoMaster;
    std::optional<long long> localNs;         ///< PHC time of the anchor: a slave's last Sync
    std::optional<long long> offsetNs;        ///< PHC minus grandmaster time there
    std::optional<long long> systemOffsetNs;  ///< system minus PHC time there
    std::optional<long long> boundNs;         ///< of the error, at systemNs
    std::optional<long long> growthPpb;       ///< by which the bound grows
    std::optional<double> ratePpb;            ///< grandmaster over PHC, less 1
    std::optional<double> phcRatePpb;         ///< PHC over system clock, less 1
    std::optional<long long> delayNs;
    std::optional<long long> sequenceId;
    std::optional<long long> ageNs;  ///< since the anchor
    std::array<unsigned int, kRecordedCounters> counters{};
    std::string master;  ///< identity and port, of daemons that tell it
    std::string flags;   ///< names joined by +
};

/** systemNs: when the record was copied. sinceSyncS: for how long no Sync has shown in it. */
RecordedSample sampleOf(const gPtpTimeDataStruct& record, long long systemNs, double sinceSyncS);

/** The line of column names. */
std::string recordingColumns();

/** One line, without its end. */
std::string recordingLine(const RecordedSample& sample);

/** Takes a line by the columns that its file names; nothing for one that is torn or foreign. */
class RecordingParser {
public:
    /** False unless the columns that every sample needs are there; others may be missing. */
    bool setColumns(const std::string& line);

    std::optional<RecordedSample> parse(const std::string& line) const;

private:
    std::vector<std::string> columns_;
};

/** How every file of a recording begins; JSON and the end of the line follow. */
constexpr const char* kRecordingMagic = "# tsyn record 1 ";

}  // namespace tsyn
