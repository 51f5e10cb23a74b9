#pragma once

#include <string>

namespace tsyn {

/** Has the daemon of this process, on this interface, do what a request asks for, and answers it.
 */
std::string answerSettingRequest(const std::string& request, bool isMaster,
                                 const std::string& interfaceName);

}  // namespace tsyn
