#pragma once

#include <optional>
#include <string>

namespace tsyn {

/** Times as people and scripts write them; all in ns since 1970, exact. */

/** Seconds of TAI over UTC since 2017. */
inline constexpr int kUtcOffsetS = 37;

/** Reads "2026-11-21T20:25:40.123456789Z" (UTC, also without the Z; with TAI at its end that),
 *  "1795206340.123456789" and "1795206340s" in seconds, "1795206340123456789" in ns. Gives UTC;
 *  nothing when the text is none of these or lies outside 1970 to 2262. */
std::optional<long long> parseTime(const std::string& text, int utcOffsetS);

/** Whether nothing but its size tells the unit of a number. */
bool isBareNumber(const std::string& text);

/** Reads a span with its unit, such as "-1.5ms". */
std::optional<long long> parseSpan(const std::string& text);

/** "2026-11-21T20:25:40.123456789", without a zone, and the same without what follows the point. */
std::string isoText(long long ns);
std::string isoSecondsText(long long ns);

/** "2026-11-21T20:25:40.123456789Z", or in TAI with that at its end. */
std::string utcText(long long utcNs);
std::string taiText(long long utcNs, int utcOffsetS);

/** What parseTime reads, for errors. */
extern const char* const kTimeForms;

}  // namespace tsyn
