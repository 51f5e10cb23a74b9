#include "tools/tsyn/describe/Describe.h"

#include <cstdio>

#include "tools/tsyn/cli/OptionTypes.h"

namespace tsyn {

std::vector<const CLI::App*> commandsOf(const CLI::App& program) {
    return program.get_subcommands(
        [](const CLI::App* command) { return !command->get_group().empty(); });
}

std::vector<const CLI::Option*> optionsOf(const CLI::App& app) {
    return app.get_options([](const CLI::Option* option) {
        return option->nonpositional() && !option->get_group().empty();
    });
}

void addDescribeOption(CLI::App& program, const std::string& buildDate) {
    program
        .add_option_function<std::string>(
            "--describe",
            [&program, buildDate](const std::string& form) {
                const std::string text = form == "bash"  ? bashCompletion(program)
                                         : form == "zsh" ? zshCompletion(program)
                                                         : manPage(program, buildDate);
                std::fputs(text.c_str(), stdout);
                throw CLI::Success();
            },
            "print completion or manual page")
        ->check(oneOfWords({"bash", "zsh", "man"}))
        ->group("");
}

}  // namespace tsyn
