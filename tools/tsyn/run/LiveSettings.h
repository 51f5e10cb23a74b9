#pragma once

#include <string>

namespace tsyn {

/** Has this process's daemon, on this interface, do what a request asks for, and answers it. */
std::string answerSettingRequest(const std::string& request, bool isMaster,
                                 const std::string& interfaceName);

}  // namespace tsyn
