#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace simulate {

constexpr std::uint64_t kNsPerSecond = 1'000'000'000;

/** Numbers with units, such as "1h 30min" or "0.5s", in nanoseconds; nothing for any other text and
 *  from 292 years on. */
std::optional<std::uint64_t> parseDuration(const std::string& text);

/** Seconds from 0 in nanoseconds; nothing for what is negative, not finite or too long. */
std::optional<std::uint64_t> durationOfSeconds(double seconds);

double secondsOf(std::uint64_t ns);

/** "12 s", "0.5 s": as many decimals as it needs. */
std::string secondsText(std::uint64_t ns);

/** A date and time of UTC or with an offset, such as 2038-01-19T03:14:00Z, in nanoseconds since
 *  1970; nothing for other texts, dates that are none and times before 1970 or after 2262. */
std::optional<std::uint64_t> parseInstant(const std::string& text);

/** Without needless decimals: 102, 0.5, 1e+20. */
std::string numberText(double value);

}  // namespace simulate
