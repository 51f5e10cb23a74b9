#pragma once

#include <string>

namespace tsyn {

/** What keeps the spy provider from taking its UDP port, empty when nothing does. The provider
 *  itself would only answer nobody. */
std::string spyPortProblem();

/** Starts a thread that runs the library's spy provider until the process ends. To be called when
 *  the daemon runs, since the provider looks for the published record only once. */
void startSpyThread();

}  // namespace tsyn
