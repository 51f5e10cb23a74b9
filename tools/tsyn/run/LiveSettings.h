#pragma once

#include <string>

namespace tsyn {

/** Has the daemon of this process do what a request asks for, and answers it. */
std::string answerSettingRequest(const std::string& request, bool isMaster);

}  // namespace tsyn
