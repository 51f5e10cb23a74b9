#include "tools/tsyn/daemon/PacketSockets.h"

#include <net/if.h>

#include <fstream>
#include <sstream>

namespace tsyn {

/** A line is: address, references, type, protocol, interface, and more; the first one is a head. */
bool hasPacketSocket(std::istream& list, unsigned int interfaceIndex) {
    for (std::string line; std::getline(list, line);) {
        std::istringstream words(line);
        std::string address, references, type, protocol;
        unsigned int index = 0;
        if (words >> address >> references >> type >> protocol >> index &&
            index == interfaceIndex) {
            return true;
        }
    }
    return false;
}

bool mayBeListenedTo(const std::string& interfaceName) {
    // An interface that is not here may be another network's, whose sockets are not shown.
    const unsigned int index = if_nametoindex(interfaceName.c_str());
    std::ifstream list("/proc/net/packet");
    return index == 0 || !list.is_open() || hasPacketSocket(list, index);
}

}  // namespace tsyn
