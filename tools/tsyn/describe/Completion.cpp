#include "tools/tsyn/cli/OptionTypes.h"
#include "tools/tsyn/describe/Describe.h"

namespace tsyn {
namespace {

std::vector<std::string> namesOf(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* option : optionsOf(app)) {
        names.push_back("--" + option->get_lnames().front());
    }
    return names;
}

std::vector<std::string> wordsOf(const CLI::Option& option) {
    std::vector<std::string> words;
    for (const Choice& choice : choicesOf(option)) {
        words.push_back(choice.word);
    }
    return words;
}

std::vector<std::string> commandNames(const CLI::App& program) {
    std::vector<std::string> names;
    for (const CLI::App* command : commandsOf(program)) {
        names.push_back(command->get_name());
    }
    return names;
}

bool takesInterface(const CLI::App& command) {
    return !command
                .get_options([](const CLI::Option* option) {
                    return option->get_positional() && plainName(*option) == "interface";
                })
                .empty();
}

/** What may follow an option that takes a value. */
std::string bashValues(const CLI::App& command) {
    std::string text;
    for (const CLI::Option* option : optionsOf(command)) {
        if (kindOf(*option) == ValueKind::kFlag) {
            continue;
        }
        const std::vector<std::string> words = wordsOf(*option);
        text += "    \"" + command.get_name() + " --" + option->get_lnames().front() + "\")\n" +
                "        words=\"" + joined(words, " ") + "\" ;;\n";
    }
    return text;
}

std::string escaped(const std::string& text, const std::string& signs) {
    std::string result;
    for (const char sign : text) {
        if (sign == '\'') {
            result += "'\\''";
            continue;
        }
        result += (signs.find(sign) != std::string::npos ? "\\" : "") + std::string(1, sign);
    }
    return result;
}

std::string zshOption(const CLI::Option& option) {
    std::string text =
        "'--" + option.get_lnames().front() + "[" + escaped(option.get_description(), "[]:") + "]";
    if (kindOf(option) != ValueKind::kFlag) {
        const std::vector<std::string> words = wordsOf(option);
        const bool isFile = valueName(option) == "FILE" || valueName(option) == "PATH";
        text += ":" + escaped(words.empty() ? valueName(option) : "value", "[]:") + ":" +
                (words.empty() ? (isFile ? "_files" : " ") : "(" + joined(words, " ") + ")");
    }
    return text + "'";
}

}  // namespace

std::string bashCompletion(const CLI::App& program) {
    std::string values;
    std::string options = "    \"\") words=\"" + joined(commandNames(program), " ") + " " +
                          joined(namesOf(program), " ") + "\" ;;\n";
    for (const CLI::App* command : commandsOf(program)) {
        values += bashValues(*command);
        options += "    " + command->get_name() + ")\n        words=\"" +
                   joined(namesOf(*command), " ") + "\"\n";
        if (takesInterface(*command)) {
            options += "        [[ $current == -* ]] || words=$(ls /sys/class/net)\n";
        }
        options += "        ;;\n";
    }
    return "# Completion of tsyn for bash.\n"
           "_tsyn() {\n"
           "    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}\n"
           "    local command=\"\" words=\"\" word\n"
           "    for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
           "        case $word in\n"
           "        " +
           joined(commandNames(program), " | ") +
           ")\n"
           "            command=$word\n"
           "            break\n"
           "            ;;\n"
           "        esac\n"
           "    done\n"
           "    case \"$command $previous\" in\n" +
           values +
           "    *)\n"
           "    case $command in\n" +
           options +
           "    esac ;;\n"
           "    esac\n"
           "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\")\n"
           "}\n"
           "complete -o default -F _tsyn tsyn\n";
}

std::string zshCompletion(const CLI::App& program) {
    std::string commands;
    std::string cases;
    for (const CLI::App* command : commandsOf(program)) {
        commands += "        '" + command->get_name() + ":" +
                    escaped(command->get_description(), ":") + "'\n";
        cases += "    " + command->get_name() + ")\n        _arguments \\\n";
        for (const CLI::Option* option : optionsOf(*command)) {
            cases += "            " + zshOption(*option) + " \\\n";
        }
        cases += takesInterface(*command) ? "            '*:interface:_net_interfaces' ;;\n"
                                          : "            '*:argument:_files' ;;\n";
    }
    return "#compdef tsyn\n"
           "_tsyn() {\n"
           "    local -a commands=(\n" +
           commands +
           "    )\n"
           "    if ((CURRENT == 2)); then\n"
           "        _describe command commands\n"
           "        return\n"
           "    fi\n"
           "    shift words\n"
           "    ((CURRENT--))\n"
           "    case $words[1] in\n" +
           cases +
           "    esac\n"
           "}\n"
           "_tsyn \"$@\"\n";
}

}  // namespace tsyn
