#pragma once

#include <CLI/CLI.hpp>
#include <map>
#include <string>
#include <vector>

namespace tsyn {

/** Validators whose errors tell what a value may be. */

/** Decimal, or hexadecimal after 0x. */
CLI::Validator wholeNumber(long long least, long long most);

/** A finite number. */
CLI::Validator realNumber(double least, double most);

/** Takes a name for a number of the configuration record. */
CLI::Validator oneOf(const std::map<std::string, unsigned int>& names);

CLI::Validator oneOfWords(const std::vector<std::string>& words);

CLI::Validator shorterThan(std::size_t size);

/** Bytes in hexadecimal digits. */
CLI::Validator hexDigits(std::size_t leastBytes, std::size_t mostBytes);

/** The words that an option's validators allow; none when any text or number will do. Each may be
 *  followed by the number that it stands for. */
struct Choice {
    std::string word;
    std::string number;
};
std::vector<Choice> choicesOf(const CLI::Option& option);

enum class ValueKind { kFlag, kNumber, kText, kTexts };
ValueKind kindOf(const CLI::Option& option);

/** What stands for the value in a usage line: its choices or its unit; empty for a flag. */
std::string valueName(const CLI::Option& option);

/** Long name without dashes; that of a positional as it stands. */
std::string plainName(const CLI::Option& option);

/** The name that comes close enough to be what was meant, empty when none does. */
std::string nearest(const std::string& word, const std::vector<std::string>& names);

std::string joined(const std::vector<std::string>& words, const std::string& separator);

}  // namespace tsyn
