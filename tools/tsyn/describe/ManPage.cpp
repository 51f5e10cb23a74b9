#include <array>
#include <cctype>
#include <string>

#include "tools/tsyn/cli/HelpText.h"
#include "tools/tsyn/cli/OptionTypes.h"
#include "tools/tsyn/describe/Describe.h"

namespace tsyn {
namespace {

/** Text of its own line; each sentence begins one. */
std::string roff(const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool begins = result.empty() || result.back() == '\n';
        if (begins && (text[i] == '.' || text[i] == '\'')) {
            result += "\\&";
        }
        if (text[i] == '\\') {
            result += "\\e";
        } else if (text[i] == '-') {
            result += "\\-";
        } else if (text[i] == ' ' && i > 0 && text[i - 1] == '.') {
            result += '\n';
        } else {
            result += text[i];
        }
    }
    return result;
}

std::string upperFirst(std::string text) {
    if (!text.empty()) {
        text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    }
    return text + ".";
}

/** "DD.MM.YYYY" as a page tells it. */
std::string pageDate(const std::string& date) {
    constexpr std::array<const char*, 12> kMonths = {
        "January", "February", "March",     "April",   "May",      "June",
        "July",    "August",   "September", "October", "November", "December"};
    const int month = std::stoi(date.substr(3, 2));
    return std::string(kMonths.at(static_cast<std::size_t>(month - 1))) + " " +
           std::to_string(std::stoi(date)) + ", " + date.substr(6);
}

std::string itemOf(const CLI::Option& option) {
    if (option.get_positional()) {
        return ".It Ar " + plainName(option) + "\n" + roff(upperFirst(helpOf(option))) + "\n";
    }
    const std::string value = valueName(option);
    return ".It Fl \\-" + roff(option.get_lnames().front()) +
           (value.empty() ? "" : " Ar " + roff(value)) + "\n" + roff(upperFirst(helpOf(option))) +
           "\n";
}

std::string listOf(const CLI::App& app) {
    std::vector<const CLI::Option*> options =
        app.get_options([](const CLI::Option* option) { return option->get_positional(); });
    for (const CLI::Option* option : optionsOf(app)) {
        options.push_back(option);
    }
    std::string text = ".Bl -tag -width Ds\n";
    for (const CLI::Option* option : options) {
        text += itemOf(*option);
    }
    return text + ".El\n";
}

std::string synopsisOf(const CLI::App& command) {
    std::string text = ".Nm\n.Cm " + command.get_name() + "\n.Op Ar options\n";
    for (const CLI::Option* option :
         command.get_options([](const CLI::Option* each) { return each->get_positional(); })) {
        text += option->get_required() ? ".Ar " : ".Op Ar ";
        text += plainName(*option) + (option->get_items_expected_max() > 1 ? " ...\n" : "\n");
    }
    return text;
}

}  // namespace

std::string manPage(const CLI::App& program, const std::string& buildDate) {
    std::string synopsis;
    std::string commands;
    for (const CLI::App* command : commandsOf(program)) {
        synopsis += synopsisOf(*command);
        commands += ".Ss tsyn " + command->get_name() + "\n" +
                    roff(upperFirst(command->get_description())) + "\n" + listOf(*command);
    }
    return ".Dd " + pageDate(buildDate) +
           "\n.Dt TSYN 1\n.Os\n.Sh NAME\n.Nm tsyn\n"
           ".Nd time master or slave of an automotive Ethernet\n.Sh SYNOPSIS\n" +
           synopsis + ".Sh DESCRIPTION\n" + roff(upperFirst(program.get_description())) + "\n" +
           ".Pp\nOptions that stand before any command:\n" + listOf(program) + ".Sh COMMANDS\n" +
           commands +
           ".Sh FILES\n.Bl -tag -width Ds\n"
           ".It Pa /dev/shm/INTERFACE\nThe record that a daemon publishes.\n"
           ".It Pa /run/tsyn/INTERFACE.sock\n"
           "Where a daemon takes the requests of\n.Cm set .\n.El\n"
           ".Sh EXIT STATUS\n"
           "0 after success, 1 when something cannot be done or is found wrong,\n"
           "2 for wrong options and unreadable files.\n";
}

}  // namespace tsyn
