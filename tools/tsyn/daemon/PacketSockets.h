#pragma once

#include <iosfwd>
#include <string>

namespace tsyn {

/** Whether the kernel's list of packet sockets has one that is bound to an interface. */
bool hasPacketSocket(std::istream& list, unsigned int interfaceIndex);

/** Whether some process listens to an interface below IP, as every daemon does; also true where
 *  nobody can tell. The list is open to every user. */
bool mayBeListenedTo(const std::string& interfaceName);

}  // namespace tsyn
