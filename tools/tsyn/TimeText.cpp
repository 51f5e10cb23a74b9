#include "tools/tsyn/TimeText.h"

#include "tools/common/Formatted.h"

namespace tsyn {
namespace {

constexpr long long kNsPerSecond = 1000000000;
constexpr int kMostDecimals = 9;
constexpr long long kSecondsPerDay = 86400;

/** Digits before and behind a point, in units of 10^-decimals. */
std::optional<long long> parseDecimal(const std::string& text, int decimals) {
    long long value = 0;
    int behind = -1;
    bool any = false;
    for (const char sign : text) {
        if (sign == '.' && behind < 0) {
            behind = 0;
            continue;
        }
        if (sign < '0' || sign > '9' || behind == decimals ||
            __builtin_mul_overflow(value, 10LL, &value) ||
            __builtin_add_overflow(value, static_cast<long long>(sign - '0'), &value)) {
            return {};
        }
        any = true;
        behind += behind >= 0 ? 1 : 0;
    }
    for (int place = behind < 0 ? 0 : behind; place < decimals; ++place) {
        if (__builtin_mul_overflow(value, 10LL, &value)) {
            return {};
        }
    }
    return any ? std::optional<long long>(value) : std::nullopt;
}

bool takeEnd(std::string& text, const std::string& end) {
    if (text.size() < end.size() || text.compare(text.size() - end.size(), end.size(), end) != 0) {
        return false;
    }
    text.erase(text.size() - end.size());
    return true;
}

/** Whole units below a value, and what it lies above them: times before 1970 are negative. */
long long wholeBelow(long long value, long long unit) {
    return value / unit - (value % unit < 0 ? 1 : 0);
}
int restAbove(long long value, long long unit) {
    return static_cast<int>((value % unit + unit) % unit);
}

/** Of the proleptic Gregorian calendar; the library's own are 32 bits wide on i386. */
long long daysSince1970(int year, int month, int day) {
    const int shifted = month <= 2 ? year - 1 : year;  // years begin in March, leap days end them
    const long long era = shifted / 400;
    const long long yearOfEra = shifted % 400;
    const int dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    return era * 146097 + yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear - 719468;
}

struct Date {
    int year;
    int month;
    int day;
};

Date dateOf(long long days) {
    int year = 1970 + static_cast<int>(days < 0 ? days / 365 - 1 : days / 366);
    while (daysSince1970(year + 1, 1, 1) <= days) {
        ++year;
    }
    int month = 1;
    while (month < 12 && daysSince1970(year, month + 1, 1) <= days) {
        ++month;
    }
    return {year, month, static_cast<int>(days - daysSince1970(year, month, 1)) + 1};
}

bool isDate(int year, int month, int day) {
    if (year < 1970 || year > 2262 || month < 1 || month > 12 || day < 1) {
        return false;
    }
    const Date same = dateOf(daysSince1970(year, month, day));
    return same.month == month && same.day == day;
}

/** The number that the digits at these places write, -1 when others stand there. */
int digitsAt(const std::string& text, std::size_t at, std::size_t count) {
    int value = 0;
    for (std::size_t i = at; i < at + count; ++i) {
        if (text[i] < '0' || text[i] > '9') {
            return -1;
        }
        value = 10 * value + (text[i] - '0');
    }
    return value;
}

/** "YYYY-MM-DDTHH:MM:SS", in which a blank may stand for the T, and perhaps a fraction. */
bool hasIsoShape(const std::string& text) {
    constexpr std::size_t kLength = 19;
    return text.size() >= kLength && text[4] == '-' && text[7] == '-' &&
           (text[10] == 'T' || text[10] == ' ') && text[13] == ':' && text[16] == ':' &&
           (text.size() == kLength || text[kLength] == '.');
}

std::optional<long long> parseIso(std::string text, int utcOffsetS) {
    const bool isTai = takeEnd(text, "TAI");
    if (!isTai) {
        takeEnd(text, "Z");
    }
    if (!hasIsoShape(text)) {
        return {};
    }
    const Date date{digitsAt(text, 0, 4), digitsAt(text, 5, 2), digitsAt(text, 8, 2)};
    const int hour = digitsAt(text, 11, 2);
    const int minute = digitsAt(text, 14, 2);
    const auto seconds = parseDecimal(text.substr(17), kMostDecimals);
    if (!isDate(date.year, date.month, date.day) || hour < 0 || hour > 23 || minute < 0 ||
        minute > 59 || !seconds || *seconds >= 60 * kNsPerSecond) {
        return {};
    }
    long long total = daysSince1970(date.year, date.month, date.day) * kSecondsPerDay;
    total += hour * 3600LL + minute * 60LL - (isTai ? utcOffsetS : 0);
    long long ns = 0;
    if (__builtin_mul_overflow(total, kNsPerSecond, &ns) ||
        __builtin_add_overflow(ns, *seconds, &ns) || ns < 0) {
        return {};
    }
    return ns;
}

}  // namespace

const char* const kTimeForms =
    "write 2026-11-21T20:25:40.5Z, seconds with a point or an s at the end, or ns";

std::optional<long long> parseTime(const std::string& text, int utcOffsetS) {
    if (text.find('-') != std::string::npos) {
        return parseIso(text, utcOffsetS);
    }
    std::string number = text;
    if (takeEnd(number, "ns")) {
        return parseDecimal(number, 0);
    }
    const bool inSeconds = takeEnd(number, "s") || number.find('.') != std::string::npos;
    return parseDecimal(number, inSeconds ? kMostDecimals : 0);
}

bool isBareNumber(const std::string& text) {
    return text.find_first_not_of("0123456789") == std::string::npos;
}

std::optional<long long> parseSpan(const std::string& text) {
    constexpr struct {
        const char* unit;
        int decimals;
    } kUnits[] = {{"ns", 0}, {"us", 3}, {"ms", 6}, {"s", 9}};
    const bool signedText = !text.empty() && (text.front() == '-' || text.front() == '+');
    std::string number = signedText ? text.substr(1) : text;
    for (const auto& each : kUnits) {
        if (takeEnd(number, each.unit)) {
            const auto span = parseDecimal(number, each.decimals);
            return span && text.front() == '-' ? -*span : span;
        }
    }
    return {};
}

std::string isoSecondsText(long long ns) {
    const long long seconds = wholeBelow(ns, kNsPerSecond);
    const Date date = dateOf(wholeBelow(seconds, kSecondsPerDay));
    const int second = restAbove(seconds, kSecondsPerDay);
    return tools::formatted("%04d-%02d-%02dT%02d:%02d:%02d", date.year, date.month, date.day,
                            second / 3600, second / 60 % 60, second % 60);
}

std::string isoText(long long ns) {
    return isoSecondsText(ns) + tools::formatted(".%09d", restAbove(ns, kNsPerSecond));
}

std::string utcText(long long utcNs) {
    return isoText(utcNs) + "Z";
}

std::string taiText(long long utcNs, int utcOffsetS) {
    return isoText(utcNs + utcOffsetS * kNsPerSecond) + "TAI";
}

}  // namespace tsyn
