#include "tools/simulate/Fields.h"

#include <algorithm>
#include <cmath>
#include <sstream>

#include "tools/simulate/Units.h"

namespace simulate {
namespace {

constexpr const char* kDurationAdvice =
    "write seconds or a text with units ns, us, ms, s, min, h, d, such as \"500ms\"";

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/** "a whole number of nanoseconds": the key's end says of what. */
std::string kindOf(const std::string& key, bool decimals) {
    return std::string(decimals ? "a number" : "a whole number") +
           (endsWith(key, "_ns")    ? " of nanoseconds"
            : endsWith(key, "_ppb") ? " of ppb"
                                    : "");
}

std::string numberAdvice(const toml::node& value, const std::string& kind,
                         const std::string& range) {
    return "write " + kind + (value.is_string() ? " without quotes" : "") + " from " + range;
}

std::string rangeText(double least, double most) {
    return numberText(least) + " to " + numberText(most);
}

}  // namespace

void Problems::add(unsigned line, const std::string& text) {
    found_.emplace_back(line, text);
}

std::vector<std::string> Problems::lines() const {
    auto sorted = found_;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<std::string> lines;
    lines.reserve(sorted.size());
    for (const auto& [line, text] : sorted) {
        lines.push_back(file_ + ":" + std::to_string(line) + ": " + text);
    }
    return lines;
}

std::string listed(const std::vector<std::string>& words, const char* last) {
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) {
        text += (i == 0 ? "" : i + 1 == words.size() ? last : ", ") + words[i];
    }
    return text;
}

unsigned Fields::lineOf(const std::string& key) const {
    for (const auto& [name, value] : table_) {
        if (name.str() == key) {
            return name.source().begin.line;
        }
    }
    return line();
}

const toml::node* Fields::find(const std::string& key) {
    if (std::find(known_.begin(), known_.end(), key) == known_.end()) {
        known_.push_back(key);
    }
    return table_.get(key);
}

bool Fields::require(const std::string& key, const std::string& advice) {
    const bool there = find(key) != nullptr;
    if (!there) {
        problems_.add(
            line(), (where_.empty() ? "" : where_ + ": ") + "'" + key + "' is missing; " + advice);
    }
    return there;
}

std::string Fields::called(const std::string& key) const {
    return where_.empty() ? key : where_ + " " + key;
}

void Fields::wrong(const std::string& key, const std::string& text) {
    problems_.add(lineOf(key), called(key) + ": " + text);
}

std::optional<std::string> Fields::peek(const std::string& key) {
    const toml::node* value = find(key);
    return value == nullptr ? std::nullopt : value->value_exact<std::string>();
}

std::optional<std::string> Fields::text(const std::string& key) {
    const toml::node* value = find(key);
    if (value == nullptr) {
        return std::nullopt;
    }
    if (!value->is_string()) {
        wrong(key, "write a text in quotes");
        return std::nullopt;
    }
    return value->as_string()->get();
}

std::optional<std::string> Fields::choice(const std::string& key,
                                          const std::vector<std::string>& allowed) {
    auto value = text(key);
    if (value && std::find(allowed.begin(), allowed.end(), *value) == allowed.end()) {
        wrong(key, "'" + *value + "' is not allowed; write " + listed(allowed));
        return std::nullopt;
    }
    return value;
}

std::optional<std::vector<std::string>> Fields::texts(const std::string& key) {
    const toml::node* value = find(key);
    if (value == nullptr) {
        return std::nullopt;
    }
    if (value->is_string()) {
        return std::vector<std::string>{value->as_string()->get()};
    }
    std::vector<std::string> result;
    bool good = value->is_array();
    if (good) {
        for (const toml::node& element : *value->as_array()) {
            good = good && element.is_string();
            result.push_back(element.value_or(std::string()));
        }
    }
    if (!good) {
        wrong(key, "write texts in brackets, such as [\"a\", \"b\"]");
        return std::nullopt;
    }
    return result;
}

Settings Fields::settings(const std::string& key) {
    const toml::node* value = find(key);
    Settings result;
    if (value == nullptr) {
        return result;
    }
    if (!value->is_table()) {
        wrong(key, "write names with texts, such as { TZ = \"UTC\" }");
        return result;
    }
    for (const auto& [name, entry] : *value->as_table()) {
        if (!entry.is_string()) {
            problems_.add(name.source().begin.line,
                          called(key) + "." + std::string(name.str()) + ": write a text in quotes");
        }
        result.emplace_back(name.str(), entry.value_or(std::string()));
    }
    return result;
}

std::optional<std::int64_t> Fields::integer(const std::string& key, std::int64_t least,
                                            std::int64_t most) {
    const toml::node* value = find(key);
    if (value == nullptr) {
        return std::nullopt;
    }
    const auto* whole = value->as_integer();
    if (whole == nullptr || whole->get() < least || whole->get() > most) {
        wrong(key, numberAdvice(*value, kindOf(key, false),
                                std::to_string(least) + " to " + std::to_string(most)));
        return std::nullopt;
    }
    return whole->get();
}

std::optional<double> Fields::numberOf(const toml::node* value, const std::string& key,
                                       double least, double most, const std::string& kind) {
    const auto number = value->is_number() ? value->value<double>() : std::nullopt;
    if (!number || !(*number >= least && *number <= most)) {
        wrong(key, numberAdvice(*value, kind, rangeText(least, most)));
        return std::nullopt;
    }
    return number;
}

std::optional<double> Fields::number(const std::string& key, double least, double most) {
    const toml::node* value = find(key);
    return value == nullptr ? std::nullopt : numberOf(value, key, least, most, kindOf(key, true));
}

std::optional<bool> Fields::flag(const std::string& key) {
    const toml::node* value = find(key);
    if (value != nullptr && !value->is_boolean()) {
        wrong(key, "write true or false");
        return std::nullopt;
    }
    return value == nullptr ? std::nullopt : value->value<bool>();
}

std::optional<std::uint64_t> Fields::durationOf(const toml::node* value, const std::string& key) {
    std::optional<std::uint64_t> ns;
    if (value->is_string()) {
        ns = parseDuration(value->as_string()->get());
    } else if (value->is_number()) {
        ns = durationOfSeconds(*value->value<double>());
    }
    if (!ns) {
        wrong(key, kDurationAdvice);
    }
    return ns;
}

std::optional<std::uint64_t> Fields::duration(const std::string& key) {
    const toml::node* value = find(key);
    return value == nullptr ? std::nullopt : durationOf(value, key);
}

std::optional<std::uint64_t> Fields::instant(const std::string& key) {
    const toml::node* value = find(key);
    if (value == nullptr) {
        return std::nullopt;
    }
    std::optional<std::uint64_t> ns;
    if (value->is_string()) {
        ns = parseInstant(value->as_string()->get());
    } else if (value->is_date_time()) {
        std::ostringstream text;
        text << value->as_date_time()->get();
        ns = parseInstant(text.str());
    } else if (value->is_integer() && value->as_integer()->get() >= 0) {
        ns = static_cast<std::uint64_t>(value->as_integer()->get());
    }
    if (!ns) {
        wrong(key,
              "write a time of 1970 to 2261 such as 2038-01-19T03:14:00Z, or nanoseconds "
              "since 1970");
    }
    return ns;
}

template <typename Read>
std::optional<Bound> Fields::boundBy(const std::string& key, Read read) {
    const toml::node* value = find(key);
    if (value == nullptr) {
        return std::nullopt;
    }
    const toml::table* ends = value->as_table();
    if (ends == nullptr) {
        const auto most = read(value);
        return most ? std::optional<Bound>({std::nullopt, most}) : std::nullopt;
    }
    Bound bound;
    for (const auto& [name, end] : *ends) {
        if (name.str() == "min") {
            bound.min = read(&end);
        } else if (name.str() == "max") {
            bound.max = read(&end);
        } else {
            wrong(key, "'" + std::string(name.str()) + "' is unknown; write min, max or both");
        }
    }
    if (ends->empty() || (bound.min && bound.max && *bound.min > *bound.max)) {
        wrong(key, "write min, max or both, and no min above the max");
    }
    return bound;
}

std::optional<Bound> Fields::bound(const std::string& key, bool negative, const std::string& unit) {
    constexpr double kMost = 1e18;
    const std::string kind = "a whole or decimal number" + (unit.empty() ? "" : " of " + unit);
    return boundBy(key, [&](const toml::node* value) {
        return numberOf(value, key, negative ? -kMost : 0.0, kMost, kind);
    });
}

std::optional<Bound> Fields::durationBound(const std::string& key) {
    return boundBy(key, [&](const toml::node* value) -> std::optional<double> {
        const auto ns = durationOf(value, key);
        return ns ? std::optional<double>(secondsOf(*ns)) : std::nullopt;
    });
}

std::vector<double> Fields::spread(const std::string& key, double least, double most,
                                   std::size_t count, bool decimals) {
    const toml::node* value = find(key);
    if (value == nullptr) {
        return {};
    }
    const std::string kind = kindOf(key, decimals);
    std::optional<double> from;
    std::optional<double> to;
    if (const toml::table* ends = value->as_table()) {
        const toml::node* first = ends->get("from");
        const toml::node* last = ends->get("to");
        if (first == nullptr || last == nullptr || ends->size() != 2 || count < 2) {
            wrong(key, "write a number or, with a count from 2, { from = A, to = B }");
            return {};
        }
        from = numberOf(first, key, least, most, kind);
        to = numberOf(last, key, least, most, kind);
    } else {
        from = to = numberOf(value, key, least, most, kind);
        if (from && !decimals && !value->is_integer()) {
            wrong(key, numberAdvice(*value, kind, rangeText(least, most)));
        }
    }
    std::vector<double> result;
    for (std::size_t i = 0; from && to && i < count; ++i) {
        const double part = count < 2 ? 0.0 : static_cast<double>(i) / double(count - 1);
        const double exact = *from + (*to - *from) * part;
        result.push_back(decimals ? exact : std::round(exact));
    }
    return result;
}

std::vector<const toml::table*> Fields::tables(const std::string& key) {
    std::vector<const toml::table*> result;
    const toml::node* value = find(key);
    if (value == nullptr) {
        return result;
    }
    if (!value->is_array_of_tables()) {
        problems_.add(lineOf(key), "'" + key + "': write [[" + key + "]] above its keys");
        return result;
    }
    for (const toml::node& element : *value->as_array()) {
        result.push_back(element.as_table());
    }
    return result;
}

const toml::table* Fields::table(const std::string& key) {
    const toml::node* value = find(key);
    if (value != nullptr && !value->is_table()) {
        problems_.add(lineOf(key), "'" + key + "': write [" + key + "] above its keys");
        return nullptr;
    }
    return value == nullptr ? nullptr : value->as_table();
}

void Fields::finish(const std::vector<std::string>& besides) {
    for (const std::string& key : besides) {
        find(key);
    }
    for (const auto& [name, value] : table_) {
        if (std::find(known_.begin(), known_.end(), name.str()) == known_.end()) {
            problems_.add(name.source().begin.line, called(std::string(name.str())) +
                                                        ": unknown; known are " +
                                                        listed(known_, " and "));
        }
    }
}

}  // namespace simulate
