#include "tools/tsyn/cli/ConfigFile.h"

#include <toml++/toml.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <vector>

#include "tools/tsyn/cli/OptionTypes.h"

namespace tsyn {
namespace {

/** What makes sense on a command line alone. */
bool isOfCommandLine(const CLI::Option& option) {
    const std::string name = plainName(option);
    return name == "help" || name == "config" || name == "print-config" ||
           option.get_group().empty();
}

/** "Options" is where CLI11 puts those that no group was named for. */
std::string tableOf(const CLI::Option& option) {
    std::string table = option.get_group() == "Options" ? "" : option.get_group();
    std::transform(table.begin(), table.end(), table.begin(),
                   [](unsigned char letter) { return std::tolower(letter); });
    return table;
}

std::vector<CLI::Option*> configurable(CLI::App& command) {
    return command.get_options([](const CLI::Option* option) { return !isOfCommandLine(*option); });
}

std::string numberText(double value) {
    std::ostringstream text;
    text.precision(15);
    text << value;
    return text.str();
}

class Reader {
public:
    Reader(CLI::App& command, const std::string& path)
        : path_(path), options_(configurable(command)) {}

    void read();

private:
    [[noreturn]] void fail(const toml::source_region& place, const std::string& problem) const;
    void readTable(const std::string& name, const toml::table& table);
    bool isTable(const std::string& name) const;
    CLI::Option& find(const std::string& table, const toml::key& key) const;
    std::string unknown(const std::string& table, const std::string& key) const;
    std::string textOf(const CLI::Option& option, const toml::node& node) const;
    void take(CLI::Option& option, const toml::node& node) const;

    std::string path_;
    std::vector<CLI::Option*> options_;
};

void Reader::fail(const toml::source_region& place, const std::string& problem) const {
    throw CLI::ParseError(path_ + ":" + std::to_string(place.begin.line) + ": " + problem,
                          CLI::ExitCodes::ConfigError);
}

void Reader::read() {
    std::ifstream file(path_);
    std::ostringstream text;
    if (!file || !(text << file.rdbuf())) {
        throw CLI::ParseError("--config " + path_ + ": cannot be read (" + std::strerror(errno) +
                                  "); 'tsyn run --print-config' prints a file to begin with",
                              CLI::ExitCodes::FileError);
    }
    try {
        readTable("", toml::parse(text.str(), path_));
    } catch (const toml::parse_error& error) {
        fail(error.source(), std::string(error.description()) + "; it has to be a TOML file");
    }
}

bool Reader::isTable(const std::string& name) const {
    return std::any_of(options_.begin(), options_.end(),
                       [&name](const CLI::Option* option) { return tableOf(*option) == name; });
}

void Reader::readTable(const std::string& name, const toml::table& table) {
    for (const auto& [key, node] : table) {
        const std::string inner(key.str());
        if (name.empty() && node.is_table() && isTable(inner)) {
            readTable(inner, *node.as_table());
            continue;
        }
        CLI::Option& option = find(name, key);
        if (option.count() == 0) {
            take(option, node);
        }
    }
}

CLI::Option& Reader::find(const std::string& table, const toml::key& key) const {
    const std::string name(key.str());
    for (CLI::Option* option : options_) {
        if (plainName(*option) == name && tableOf(*option) == table) {
            return *option;
        }
    }
    fail(key.source(), unknown(table, name));
}

std::string Reader::unknown(const std::string& table, const std::string& key) const {
    std::vector<std::string> here;
    for (const CLI::Option* option : options_) {
        const std::string other = tableOf(*option);
        if (plainName(*option) == key) {
            return "'" + key + "' belongs " +
                   (other.empty() ? "above the tables" : "in [" + other + "]");
        }
        if (other == table) {
            here.push_back(plainName(*option));
        } else if (table.empty() && std::find(here.begin(), here.end(), other) == here.end()) {
            here.push_back(other);
        }
    }
    const std::string meant = nearest(key, here);
    return "unknown key '" + key + "'" + (meant.empty() ? "" : "; did you mean '" + meant + "'?") +
           "; " + (table.empty() ? "there are " : "[" + table + "] may have ") + joined(here, ", ");
}

std::string Reader::textOf(const CLI::Option& option, const toml::node& node) const {
    const auto refuse = [&](const std::string& needed) {
        fail(node.source(),
             plainName(option) + ": needs " + needed + " (" + option.get_description() + ")");
    };
    switch (kindOf(option)) {
    case ValueKind::kFlag:
        if (!node.is_boolean()) {
            refuse("true or false");
        }
        return node.value_or(false) ? "true" : "false";
    case ValueKind::kNumber:
        if (node.is_integer()) {
            return std::to_string(node.value_or(std::int64_t{0}));
        }
        if (!node.is_floating_point()) {
            refuse("a number");
        }
        return numberText(node.value_or(0.0));
    case ValueKind::kTexts:
        if (!node.is_string()) {
            refuse("a list of texts in quotes");
        }
        break;
    case ValueKind::kText:
        if (!node.is_string()) {
            refuse("a text in quotes");
        }
    }
    return node.value_or(std::string());
}

void Reader::take(CLI::Option& option, const toml::node& node) const {
    const toml::array* const list = kindOf(option) == ValueKind::kTexts ? node.as_array() : nullptr;
    if (list == nullptr) {
        option.add_result(textOf(option, node));
    } else {
        for (const toml::node& item : *list) {
            option.add_result(textOf(option, item));
        }
    }
    try {
        if (option.count() != 0) {
            option.run_callback();
        }
    } catch (const CLI::ParseError& error) {
        std::string problem = error.what();
        problem.erase(0, std::min(problem.find_first_not_of('-'), problem.size()));
        fail(node.source(), problem);
    }
}

std::string quoted(const std::string& text) {
    // Within what an option takes, both languages write texts alike.
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

/** A choice that was told may stand as its number. */
std::string wordFor(const CLI::Option& option, const std::string& text) {
    for (const Choice& choice : choicesOf(option)) {
        if (!text.empty() && choice.number == text) {
            return choice.word;
        }
    }
    return text;
}

std::string valueText(const CLI::Option& option, const std::vector<std::string>& results) {
    const std::string first = results.empty() ? "" : results.front();
    std::vector<std::string> texts;
    switch (kindOf(option)) {
    case ValueKind::kFlag:
        return first.empty() || first == "false" ? "false" : "true";
    case ValueKind::kNumber:
        // A command line may have written it in a way that such a file does not know.
        return first.empty() ? "0" : numberText(std::strtod(first.c_str(), nullptr));
    case ValueKind::kTexts:
        for (const std::string& text : results) {
            texts.push_back(quoted(text));
        }
        return "[" + joined(texts, ", ") + "]";
    case ValueKind::kText:
        return quoted(wordFor(option, first));
    }
    return {};
}

std::string entry(const CLI::Option& option) {
    const bool told = option.count() != 0;
    std::vector<std::string> defaults;
    if (!option.get_default_str().empty()) {
        defaults.push_back(option.get_default_str());
    }
    const std::vector<Choice> choices = choicesOf(option);
    std::string text = "# " + option.get_description();
    if (!choices.empty()) {
        text += ": " + valueName(option);
    }
    return text + "\n" + (told ? "" : "#") + plainName(option) + " = " +
           valueText(option, told ? option.results() : defaults) + "\n";
}

}  // namespace

void readConfigFile(CLI::App& command, const std::string& path) {
    Reader(command, path).read();
}

std::string configText(const CLI::App& command) {
    std::string text = "# For 'tsyn " + command.get_name() +
                       " --config FILE'; options of the command line win.\n"
                       "# What is commented out shows its default.\n";
    std::string table;
    // A table goes on to the next one, so its options have to stand together.
    std::vector<const CLI::Option*> options =
        command.get_options([](const CLI::Option* option) { return !isOfCommandLine(*option); });
    std::stable_sort(options.begin(), options.end(), [](auto* one, auto* other) {
        return tableOf(*one).empty() && !tableOf(*other).empty();
    });
    for (const CLI::Option* option : options) {
        if (tableOf(*option) != table) {
            table = tableOf(*option);
            text += "\n[" + table + "]\n";
        }
        text += "\n" + entry(*option);
    }
    return text;
}

}  // namespace tsyn
