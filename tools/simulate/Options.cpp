#include "tools/simulate/Options.h"

#include <charconv>

namespace simulate {
namespace {

std::optional<std::uint64_t> parseNumber(const std::string& text) {
    constexpr std::uint64_t kMost = INT64_MAX;
    std::uint64_t number = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    if (result.ec != std::errc() || result.ptr != text.data() + text.size() || number > kMost) {
        return std::nullopt;
    }
    return number;
}

/** Both ends, in whatever order. */
std::optional<Seeds> parseEnds(const std::string& text) {
    const std::size_t dots = text.find("..");
    const auto first = parseNumber(text.substr(0, dots));
    const auto last = dots == std::string::npos ? first : parseNumber(text.substr(dots + 2));
    if (!first || !last) {
        return std::nullopt;
    }
    return Seeds{*first, *last};
}

}  // namespace

std::optional<Seeds> parseSeeds(const std::string& text) {
    return seedsMistake(text).empty() ? parseEnds(text) : std::nullopt;
}

std::string seedsMistake(const std::string& text) {
    constexpr std::uint64_t kMostSeeds = 1'000'000;
    const auto ends = parseEnds(text);
    if (!ends) {
        return "'" + text + "' is no seed; write A or A..B";
    }
    if (ends->first > ends->last) {
        return std::to_string(ends->first) + " is above " + std::to_string(ends->last) +
               "; write the lower seed first";
    }
    return ends->last - ends->first < kMostSeeds ? "" : "more than a million seeds; write fewer";
}

std::string shellWord(const std::string& text) {
    constexpr const char* kPlain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./,:=+@%";
    if (!text.empty() && text.find_first_not_of(kPlain) == std::string::npos) {
        return text;
    }
    std::string word = "'";
    for (const char letter : text) {
        word += letter == '\'' ? "'\\''" : std::string(1, letter);
    }
    return word + "'";
}

}  // namespace simulate
