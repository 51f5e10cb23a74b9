#pragma once

/* The peer-delay computation. Pure functions; times in ns of the clock that took them. */

/** t1: request sent (own clock), t2: request received, t3: response sent (both the peer's),
 *  t4: response received (own). */
struct PdelayTimes {
    unsigned long long t1, t2, t3, t4;
};

/** Peer rate over own rate between two exchanges; 1 without a previous one. Differences read as
 *  unsigned. */
long double neighbourRateRatio(unsigned long long t3, unsigned long long previousT3,
                               unsigned long long t4, unsigned long long previousT4);

/** Half of what the round trip took less the peer's turnaround, truncated toward zero. */
long long meanLinkDelay(const PdelayTimes& times, long double ratio);

/** A port measures the delay once in so many Sync intervals. */
inline constexpr double kSyncsPerPdelay = 8.0;

/** 1 to 49,999 ns. */
bool isDelayInLimits(long long delay);

/** The filter's start for a port, ns: its first measurement is averaged with this. */
inline constexpr int kPresetDelay = 600;

/** The filter after a rejected measurement. */
inline constexpr int kEmptyFilter = 0;

/** Average of the filtered delay and a new one; an empty filter takes the new one as it is. */
int filteredDelay(int filtered, long long delay);

/** Result of the line fit through a port's history. */
struct TimeBaseFit {
    double slope;
    long long estimate;  ///< latest response time less the fitted one, ns
};

/** Fits a line through the positions whose correction is not 0. Fewer than two of them, or all at
 *  one time, give slope 0; none at all gives 0 for both. */
TimeBaseFit fitTimeBase(const long long (&corrections)[8],
                        const unsigned long long (&responseTimes)[8]);
