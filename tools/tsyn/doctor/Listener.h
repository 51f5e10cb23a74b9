#pragma once

#include "tools/tsyn/doctor/Evidence.h"

namespace tsyn::doctor {

/** Hears the PTP frames of an interface through a socket of its own: sends nothing, and leaves the
 *  card and other sockets as they are. */
WireFacts listen(const Evidence& evidence);

/** The frame that the kernel gave. tag: the id of a VLAN tag that it took out, -1 without one. */
std::optional<Heard> heardFrame(const unsigned char* bytes, std::size_t size, int tag);

}  // namespace tsyn::doctor
