#pragma once

#include <string>

namespace tsyn {

/** Why no daemon may start beside the one that runs on an interface, empty when none is known to.
 *  The lock is looked for in the kernel's list: to try it could keep another one from starting. */
std::string runningBeside(const std::string& interfaceName);

/** Why the library refused to start. */
std::string whyRefused(const std::string& interfaceName);

}  // namespace tsyn
