#include "tools/tsyn/run/InterfacePresence.h"

#include <net/if.h>

#include <utility>

namespace tsyn {

InterfacePresence::InterfacePresence(std::string name, bool followsName)
    : name_(std::move(name)), followsName_(followsName), index_(if_nametoindex(name_.c_str())) {}

bool InterfacePresence::isThere() {
    char name[IF_NAMESIZE];
    if (if_indextoname(index_, name) != nullptr) {
        return true;
    }
    const unsigned int anew = followsName_ ? if_nametoindex(name_.c_str()) : 0;
    if (anew == 0) {
        return false;
    }
    index_ = anew;
    return true;
}

}  // namespace tsyn
