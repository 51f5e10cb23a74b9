#include "tools/tsyn/cli/OptionTypes.h"

#include <algorithm>
#include <numeric>
#include <sstream>
#include <utility>

#include "tools/tsyn/HexText.h"

namespace tsyn {
namespace {

/** The allowed words as CLI11's own validators describe theirs. */
std::string described(const std::vector<std::string>& words) {
    return "{" + joined(words, ",") + "}";
}

std::string notOneOf(const std::string& text, const std::vector<std::string>& words) {
    return "'" + text + "' is not one of " + joined(words, ", ");
}

/** Letters added, left out, replaced or swapped with the next. */
std::size_t distance(const std::string& one, const std::string& other) {
    std::vector<std::size_t> twoBack;
    std::vector<std::size_t> back;
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < one.size(); ++i) {
        twoBack = std::exchange(back, row);
        row[0] = i + 1;
        for (std::size_t j = 0; j < other.size(); ++j) {
            const std::size_t replaced = back[j] + (one[i] == other[j] ? 0 : 1);
            row[j + 1] = std::min({replaced, row[j] + 1, back[j + 1] + 1});
            if (i > 0 && j > 0 && one[i] == other[j - 1] && one[i - 1] == other[j]) {
                row[j + 1] = std::min(row[j + 1], twoBack[j - 1] + 1);
            }
        }
    }
    return row.back();
}

/** Type of the value without what validators add to it. */
std::string plainType(const CLI::Option& option) {
    const std::string type = option.get_type_name();
    return type.substr(0, type.find(':'));
}

bool isNumberName(const std::string& name) {
    static const std::vector<std::string> names = {"NUMBER", "NS", "MS", "SECONDS", "HZ"};
    return std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

std::string joined(const std::vector<std::string>& words, const std::string& separator) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : separator) + word;
    }
    return text;
}

CLI::Validator wholeNumber(long long least, long long most) {
    const auto check = [least, most](std::string& text) -> std::string {
        long long value = 0;
        if (CLI::detail::lexical_cast(text, value) && value >= least && value <= most) {
            return {};
        }
        return "'" + text + "' is not a whole number from " + std::to_string(least) + " to " +
               std::to_string(most);
    };
    return CLI::Validator(check, "");
}

CLI::Validator realNumber(double least, double most) {
    const auto check = [least, most](std::string& text) -> std::string {
        double value = 0.0;
        // "nan" passes none of these comparisons.
        if (CLI::detail::lexical_cast(text, value) && value >= least && value <= most) {
            return {};
        }
        constexpr int kDigits = 12;  // so that the limits in use are written out
        std::ostringstream message;
        message.precision(kDigits);
        message << "'" << text << "' is not a number from " << least << " to " << most;
        return message.str();
    };
    return CLI::Validator(check, "");
}

CLI::Validator oneOf(const std::map<std::string, unsigned int>& names) {
    std::vector<std::pair<unsigned int, std::string>> byNumber;
    byNumber.reserve(names.size());
    for (const auto& [word, number] : names) {
        byNumber.emplace_back(number, word);
    }
    std::sort(byNumber.begin(), byNumber.end());
    std::vector<std::string> words;
    std::vector<std::string> pairs;
    words.reserve(names.size());
    pairs.reserve(names.size());
    for (const auto& [number, word] : byNumber) {
        words.push_back(word);
        pairs.push_back(word + "->" + std::to_string(number));
    }
    const auto take = [byNumber, words](std::string& text) -> std::string {
        for (const auto& [number, word] : byNumber) {
            if (text == word || text == std::to_string(number)) {
                text = std::to_string(number);
                return {};
            }
        }
        return notOneOf(text, words);
    };
    return CLI::Validator(take, described(pairs));
}

CLI::Validator oneOfWords(const std::vector<std::string>& words) {
    const auto check = [words](std::string& text) -> std::string {
        const bool known = std::find(words.begin(), words.end(), text) != words.end();
        return known ? "" : notOneOf(text, words);
    };
    return CLI::Validator(check, described(words));
}

CLI::Validator shorterThan(std::size_t size) {
    const auto check = [size](std::string& text) -> std::string {
        if (!text.empty() && text.size() < size) {
            return {};
        }
        return "needs 1 to " + std::to_string(size - 1) + " characters";
    };
    return CLI::Validator(check, "");
}

CLI::Validator hexDigits(std::size_t leastBytes, std::size_t mostBytes) {
    const auto check = [leastBytes, mostBytes](const std::string& text) {
        return hexProblem(text, leastBytes, mostBytes);
    };
    return CLI::Validator(check, "");
}

std::vector<Choice> choicesOf(const CLI::Option& option) {
    const std::string type = option.get_type_name();
    const std::size_t begin = type.find('{');
    const std::size_t end = type.find('}', begin);
    if (begin == std::string::npos || end == std::string::npos) {
        return {};
    }
    std::vector<Choice> choices;
    std::istringstream words(type.substr(begin + 1, end - begin - 1));
    for (std::string word; std::getline(words, word, ',');) {
        const std::size_t arrow = word.find("->");
        choices.push_back(
            {word.substr(0, arrow), arrow == std::string::npos ? "" : word.substr(arrow + 2)});
    }
    return choices;
}

ValueKind kindOf(const CLI::Option& option) {
    if (option.get_items_expected_max() == 0) {
        return ValueKind::kFlag;
    }
    if (option.get_items_expected_max() > 1 && !option.get_positional()) {
        return ValueKind::kTexts;
    }
    return isNumberName(valueName(option)) ? ValueKind::kNumber : ValueKind::kText;
}

std::string valueName(const CLI::Option& option) {
    if (option.get_items_expected_max() == 0) {
        return {};
    }
    std::vector<std::string> words;
    for (const Choice& choice : choicesOf(option)) {
        words.push_back(choice.word);
    }
    if (!words.empty()) {
        return joined(words, "|");
    }
    const std::string type = plainType(option);
    return type == "UINT" || type == "INT" || type == "FLOAT" ? "NUMBER" : type;
}

std::string plainName(const CLI::Option& option) {
    const std::string name = option.get_name();
    return name.substr(std::min(name.find_first_not_of('-'), name.size()));
}

std::string nearest(const std::string& word, const std::vector<std::string>& names) {
    constexpr std::size_t kLettersASlip = 3;
    constexpr std::size_t kMostSlips = 2;
    std::string best;
    const std::size_t letters = word.size() - std::min(word.find_first_not_of('-'), word.size());
    std::size_t bestDistance = 1 + std::min(kMostSlips, letters / kLettersASlip);
    for (const std::string& name : names) {
        const std::size_t apart = distance(word, name);
        if (apart < bestDistance) {
            bestDistance = apart;
            best = name;
        }
    }
    return best;
}

}  // namespace tsyn
