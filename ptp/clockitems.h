#pragma once

#include <map>
#include <type_traits>

#include "base/Exports.h"
#include "ptp/ptpclass.h"

inline constexpr int kHistoryDepth = 8;

#pragma pack(push, 4)
/** A 20-byte slot: a 64-bit nanosecond count and unused words. */
struct TimestampRecord {
    unsigned long long ns;
    unsigned int unused[3];
};

/** Eight samples, the latest first. */
struct TimestampHistory {
    TimestampRecord entries[kHistoryDepth];

    /** Moves every sample one place back; the latest also stays in front. */
    void shift() {
        for (int i = kHistoryDepth - 2; i >= 0; --i) {
            entries[i + 1] = entries[i];
        }
    }
};

/** What the daemon keeps per port identity; times in ns of the clock that took them. Hosts find the
 *  records through the exported table, so members that nothing here reads keep their places. */
struct ClockItemMembersType {
    unsigned int initialised = 0;      ///< a matched Sync and Follow_Up have primed the histories
    TimestampHistory masterTimes{};    ///< master time at each Sync's t2
    TimestampHistory localTimes{};     ///< t2 of each Sync
    TimestampHistory spareTimes{};     ///< shifted with the two above
    TimestampHistory corrections{};    ///< correctionField of each Pdelay_Resp_Follow_Up
    TimestampHistory responseTimes{};  ///< t4 of each peer-delay exchange
    TimestampHistory unusedTimes{};
    unsigned long long extTime1 = 0;  ///< system time when the last Pdelay_Resp came
    unsigned long long extTime2 = 0;  ///< PHC time then
    int unusedWord = 2456000;         ///< the initial value that hosts find at this place
    int measuredDelay = 0;            ///< filtered mean link delay
    TimestampRecord t1{};             ///< Pdelay_Req sent
    TimestampRecord t2{};             ///< Pdelay_Req received by the peer
    TimestampRecord t3{};             ///< Pdelay_Resp sent by the peer
    TimestampRecord t4{};             ///< Pdelay_Resp received
    TimestampRecord prev_t1{};
    TimestampRecord prev_t2{};
    TimestampRecord prev_t3{};
    TimestampRecord prev_t4{};
    TimestampRecord spareTime1{};
    TimestampRecord spareTime2{};
    int arrivalMark = 0;                ///< millisecond within its second of the last Follow_Up
    TimestampRecord syncReceiveTime{};  ///< t2 of the latest Sync
    TimestampRecord originTime{};       ///< t1 of the latest Follow_Up
    TimestampRecord spareTime3{};
    TimestampRecord spareTime4{};
    TimestampRecord spareTime5{};
    int unused0 = 0;
    int syncSequenceId = -1;  ///< of the latest accepted Sync
    int unusedSequenceId = -1;
    unsigned int pdelaySeqNo = 0;       ///< of the last Pdelay_Req sent
    unsigned short respPortNumber = 1;  ///< of the last Pdelay_Resp's sender
};
#pragma pack(pop)

static_assert(sizeof(TimestampRecord) == 20, "timestamp slots are 20 bytes");
static_assert(sizeof(TimestampHistory) == 160, "eight slots");
static_assert(std::is_trivially_copyable<ClockItemMembersType>::value, "plain record");

/** Every port heard of since the process started, unless a profile bounds it. */
ZEB_EXPORT extern std::map<PortKey, ClockItemMembersType> clockItems;

/** The record of a port, made on first use. Only the look-up is guarded; the record is not. */
ClockItemMembersType& clockItemOf(const PortKey& key);

/** Erases the record of a port. Only by the thread that handles received messages, and never that
 * of the port that own requests leave: no other thread holds a reference to any other record. */
void forgetClockItem(const PortKey& key);
