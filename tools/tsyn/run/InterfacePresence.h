#pragma once

#include <string>

namespace tsyn {

/** Tells whether the interface that a daemon was started on is still there. A new name changes
 *  nothing for a daemon. */
class InterfacePresence {
public:
    /** followsName: the daemon takes up an interface that is made anew under the name. */
    InterfacePresence(std::string name, bool followsName);

    bool isThere();

private:
    std::string name_;
    bool followsName_;
    unsigned int index_;
};

}  // namespace tsyn
