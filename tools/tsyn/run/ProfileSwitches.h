#pragma once

#include <string>

#include "include/ZebEthTimeSynProfile.h"

namespace tsyn {

/** Sets what a text "NAME=VALUE" tells: a switch of the library, or masterIdentity with 16
 *  hexadecimal digits, with or without colons. Returns what is wrong with it, empty on success. */
std::string setSwitch(TSynProfile& profile, const std::string& text);

}  // namespace tsyn
