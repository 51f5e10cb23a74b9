#include "tools/tsyn/cli/ParseErrors.h"

#include <vector>

#include "tools/tsyn/cli/OptionTypes.h"

namespace tsyn {
namespace {

const CLI::App* namedCommand(const CLI::App& program) {
    const std::vector<const CLI::App*> named =
        program.get_subcommands([](const CLI::App* command) { return command->parsed(); });
    return named.empty() ? nullptr : named.front();
}

std::vector<std::string> knownOptions(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options()) {
        if (option->nonpositional()) {
            names.push_back(option->get_name());
        }
    }
    return names;
}

std::vector<std::string> knownCommands(const CLI::App& program) {
    std::vector<std::string> names;
    for (const CLI::App* command : program.get_subcommands({})) {
        if (!command->get_group().empty()) {
            names.push_back(command->get_name());
        }
    }
    return names;
}

/** A word that nothing took is the cause of whatever else is missing. */
std::string notUnderstood(const CLI::App& program, const CLI::App* command,
                          const std::string& word) {
    const bool isOption = word.size() > 1 && word.front() == '-';
    const std::string plain = isOption ? word.substr(0, word.find('=')) : word;
    std::string text;
    std::vector<std::string> known;
    if (isOption) {
        text = "unknown option " + plain;
        known = knownOptions(command == nullptr ? program : *command);
    } else if (command == nullptr) {
        known = knownCommands(program);
        text = "unknown command '" + plain + "', not one of " + joined(known, ", ");
    } else {
        return "'" + plain + "' is one argument too many";
    }
    const std::string meant = nearest(plain, known);
    return meant.empty() ? text : text + "; did you mean " + meant + "?";
}

}  // namespace

std::string parseErrorLine(const CLI::App* program, const CLI::Error& error) {
    const CLI::App* const command = namedCommand(*program);
    const std::vector<std::string> unknown = program->remaining(true);
    const bool isMissing = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr ||
                           dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr;
    const std::string problem = isMissing && !unknown.empty()
                                    ? notUnderstood(*program, command, unknown.front())
                                    : std::string(error.what());
    return "tsyn: " + problem +
           (command == nullptr ? "; 'tsyn --help' lists the commands\n"
                               : "; 'tsyn " + command->get_name() + " --help' lists the options\n");
}

}  // namespace tsyn
