#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace tsyn {

/** One of tsyn's commands, with its options declared. run gives the exit status, and is called only
 *  after the command was named and its options were read. */
struct Command {
    CLI::App* parser;
    std::function<int()> run;
};

/** Exit status of a wrong use: unknown options, values out of range. */
constexpr int kWrongUse = 2;

}  // namespace tsyn
