#include "tools/tsyn/cli/HelpText.h"

#include <sstream>
#include <utility>

#include "tools/tsyn/cli/OptionTypes.h"

namespace tsyn {
namespace {

constexpr std::size_t kTextColumn = 32;
constexpr std::size_t kWidth = 100;

/** Breaks lines where the text column ends; CLI11 indents those that follow. */
std::string wrapped(const std::string& text, std::size_t width = kWidth - kTextColumn) {
    std::istringstream words(text);
    std::string result;
    std::size_t column = 0;
    for (std::string word; words >> word;) {
        if (column != 0 && column + 1 + word.size() > width) {
            result += '\n';
            column = 0;
        } else if (column != 0) {
            result += ' ';
            ++column;
        }
        result += word;
        column += word.size();
    }
    return result;
}

class HelpFormatter : public CLI::Formatter {
public:
    HelpFormatter() {
        column_width(kTextColumn);
        label("Positionals", "Arguments");
        label("SUBCOMMAND", "COMMAND");
    }

    std::string make_option_opts(const CLI::Option* option) const override {
        const std::string value = valueName(*option);
        // The name of an argument tells enough.
        return value.empty() || option->get_positional() ? "" : " " + value;
    }

    std::string make_option_desc(const CLI::Option* option) const override {
        return wrapped(helpOf(*option));
    }

    std::string make_help(const CLI::App* app, std::string name,
                          CLI::AppFormatMode mode) const override {
        return CLI::detail::find_and_replace(Formatter::make_help(app, std::move(name), mode),
                                             "\n\n\n", "\n\n");
    }

    std::string make_description(const CLI::App* app) const override {
        return wrapped(Formatter::make_description(app), kWidth) + "\n";
    }

    std::string make_subcommand(const CLI::App* command) const override {
        std::ostringstream out;
        CLI::detail::format_help(out, command->get_name(), wrapped(command->get_description()),
                                 kTextColumn);
        return out.str();
    }
};

}  // namespace

std::shared_ptr<CLI::Formatter> helpFormatter() {
    return std::make_shared<HelpFormatter>();
}

std::string helpOf(const CLI::Option& option) {
    std::string text = option.get_description();
    const std::string preset = option.get_default_str();
    if (!preset.empty() && text.find("(" + preset + ")") == std::string::npos) {
        text += " (default " + preset + ")";
    }
    if (option.get_required()) {
        text += " (required)";
    }
    for (const CLI::Option* needed : option.get_needs()) {
        text += " (with " + needed->get_name() + ")";
    }
    return text;
}

}  // namespace tsyn
