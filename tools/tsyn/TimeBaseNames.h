#pragma once

#include <map>
#include <string>

namespace tsyn {

/** What a master's time base may be called, with its status byte. */
inline const std::map<std::string, unsigned int>& timeBaseNames() {
    static const std::map<std::string, unsigned int> names = {
        {"none", 0}, {"gateway", 4}, {"global", 8}, {"global+gateway", 12}};
    return names;
}

}  // namespace tsyn
