#include "tools/simulate/Units.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace simulate {
namespace {

struct Unit {
    const char* name;
    std::uint64_t ns;
};

constexpr std::uint64_t kMinute = 60 * kNsPerSecond;
constexpr std::uint64_t kHour = 60 * kMinute;
constexpr std::uint64_t kDay = 24 * kHour;
constexpr std::uint64_t kMostNs = INT64_MAX;
constexpr std::array<Unit, 7> kUnits{{{"ns", 1},
                                      {"us", 1'000},
                                      {"ms", 1'000'000},
                                      {"s", kNsPerSecond},
                                      {"min", kMinute},
                                      {"h", kHour},
                                      {"d", kDay}}};

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

void skipSpaces(const std::string& text, std::size_t& at) {
    while (at < text.size() && text[at] == ' ') {
        ++at;
    }
}

std::optional<std::uint64_t> unitAt(const std::string& text, std::size_t& at) {
    std::size_t end = at;
    while (end < text.size() && std::isalpha(static_cast<unsigned char>(text[end])) != 0) {
        ++end;
    }
    const std::string name = text.substr(at, end - at);
    at = end;
    for (const Unit& unit : kUnits) {
        if (name == unit.name) {
            return unit.ns;
        }
    }
    return std::nullopt;
}

/** One number with its unit. */
std::optional<long double> partAt(const std::string& text, std::size_t& at) {
    const std::size_t begin = at;
    std::size_t digits = 0;
    std::size_t points = 0;
    for (; at < text.size() && (isDigit(text[at]) || text[at] == '.'); ++at) {
        ++(text[at] == '.' ? points : digits);
    }
    if (digits == 0 || points > 1) {
        return std::nullopt;
    }
    const long double number = std::strtold(text.substr(begin, at - begin).c_str(), nullptr);
    skipSpaces(text, at);
    const auto unit = unitAt(text, at);
    if (!unit) {
        return std::nullopt;
    }
    return number * static_cast<long double>(*unit);
}

/** Days from 1970-01-01 in the Gregorian calendar. */
std::int64_t daysOf(std::int64_t year, unsigned month, unsigned day) {
    // Counted from March, so that the leap day is a year's last.
    const std::int64_t marchYear = month > 2 ? year : year - 1;
    const unsigned marchMonth = month > 2 ? month - 3 : month + 9;
    const std::int64_t dayOfYear = (153 * marchMonth + 2) / 5 + day - 1;
    constexpr std::int64_t kDaysBefore1970 = 719468;
    return marchYear * 365 + marchYear / 4 - marchYear / 100 + marchYear / 400 + dayOfYear -
           kDaysBefore1970;
}

unsigned daysIn(int year, unsigned month) {
    constexpr std::array<unsigned, 12> kDays{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return kDays[month - 1] + (month == 2 && leap ? 1 : 0);
}

/** A number of exactly so many digits, and what must stand behind it; moves behind both. */
std::optional<unsigned> digitsAt(const char*& text, unsigned digits, const char* behind) {
    unsigned number = 0;
    for (unsigned i = 0; i < digits; ++i, ++text) {
        if (!isDigit(*text)) {
            return std::nullopt;
        }
        number = number * 10 + static_cast<unsigned>(*text - '0');
    }
    if (*behind != '\0' && (*text == '\0' || std::strchr(behind, *text++) == nullptr)) {
        return std::nullopt;
    }
    return number;
}

/** The part behind the seconds' fraction: Z or +hh:mm. */
std::optional<int> offsetMinutes(const char* text) {
    if (std::strcmp(text, "Z") == 0 || std::strcmp(text, "z") == 0) {
        return 0;
    }
    if (text[0] != '+' && text[0] != '-') {
        return std::nullopt;
    }
    const bool west = *text++ == '-';
    const auto hours = digitsAt(text, 2, ":");
    const auto minutes = hours ? digitsAt(text, 2, "") : std::nullopt;
    if (!minutes || *text != '\0' || *hours > 23 || *minutes > 59) {
        return std::nullopt;
    }
    const int total = static_cast<int>(*hours * 60 + *minutes);
    return west ? -total : total;
}

/** Reads ".123" and moves behind it; 0 where there is none. */
std::uint64_t fractionNs(const char*& text) {
    std::uint64_t ns = 0;
    if (*text != '.') {
        return ns;
    }
    ++text;
    for (std::uint64_t unit = kNsPerSecond / 10; isDigit(*text); unit /= 10, ++text) {
        ns += unit * static_cast<unsigned>(*text - '0');
    }
    return ns;
}

}  // namespace

std::optional<std::uint64_t> parseDuration(const std::string& text) {
    long double total = 0.0L;
    std::size_t at = 0;
    skipSpaces(text, at);
    if (at == text.size()) {
        return std::nullopt;
    }
    while (at < text.size()) {
        const auto part = partAt(text, at);
        if (!part) {
            return std::nullopt;
        }
        total += *part;
        skipSpaces(text, at);
    }
    if (total > static_cast<long double>(kMostNs)) {
        return std::nullopt;
    }
    return static_cast<std::uint64_t>(std::llroundl(total));
}

std::optional<std::uint64_t> durationOfSeconds(double seconds) {
    const double ns = seconds * 1e9;
    if (!(ns >= 0.0) || ns >= static_cast<double>(kMostNs)) {
        return std::nullopt;
    }
    return static_cast<std::uint64_t>(std::llround(ns));
}

double secondsOf(std::uint64_t ns) {
    return static_cast<double>(ns) / 1e9;
}

std::string secondsText(std::uint64_t ns) {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%llu.%09llu",
                  static_cast<unsigned long long>(ns / kNsPerSecond),
                  static_cast<unsigned long long>(ns % kNsPerSecond));
    std::string result = text.data();
    result.erase(result.find_last_not_of('0') + 1);
    if (result.back() == '.') {
        result.pop_back();
    }
    return result + " s";
}

std::optional<std::uint64_t> parseInstant(const std::string& text) {
    struct Part {
        unsigned digits;
        const char* behind;
        unsigned least;
        unsigned most;
    };
    constexpr std::array<Part, 6> kParts{{{4, "-", 1970, 2261},
                                          {2, "-", 1, 12},
                                          {2, "Tt ", 1, 31},
                                          {2, ":", 0, 23},
                                          {2, ":", 0, 59},
                                          {2, "", 0, 59}}};
    const char* rest = text.c_str();
    std::array<unsigned, kParts.size()> values{};
    for (std::size_t i = 0; i < kParts.size(); ++i) {
        const auto value = digitsAt(rest, kParts[i].digits, kParts[i].behind);
        if (!value || *value < kParts[i].least || *value > kParts[i].most) {
            return std::nullopt;
        }
        values[i] = *value;
    }
    const auto [year, month, day, hour, minute, second] = values;
    const std::uint64_t fraction = fractionNs(rest);
    const auto offset = offsetMinutes(rest);
    if (!offset || day > daysIn(static_cast<int>(year), month)) {
        return std::nullopt;
    }
    const std::int64_t minutes =
        (daysOf(year, month, day) * 24 + hour) * 60 + static_cast<std::int64_t>(minute) - *offset;
    if (minutes < 0) {
        return std::nullopt;
    }
    return static_cast<std::uint64_t>(minutes) * kMinute + second * kNsPerSecond + fraction;
}

std::string numberText(double value) {
    std::array<char, 40> text{};
    const bool whole = std::fabs(value) < 1e15 && value == std::floor(value);
    std::snprintf(text.data(), text.size(), whole ? "%.0f" : "%.10g", value);
    return text.data();
}

}  // namespace simulate
