#pragma once

#include <vector>

#include "ptp/ptpclass.h"

/* Messages as they come from the wire. */

/** The port of the fake interface: requests leave it, and a master's Sync names it too. */
inline constexpr unsigned short kPort = 3;
inline const PortKey kPortKey{7637207744166860LL, kPort};

std::vector<unsigned char> syncMessage(unsigned int sequenceId);

/** t1: preciseOriginTimestamp, ns. */
std::vector<unsigned char> followUpMessage(unsigned int sequenceId, unsigned long long t1);

/** Pdelay_Resp (type 3) or Pdelay_Resp_Follow_Up (type 10) of a peer's port 7 for a request of the
 *  given port. */
std::vector<unsigned char> pdelayAnswer(unsigned char type, unsigned int sequenceId,
                                        unsigned long long time, unsigned short port = kPort);

/** Writes a big-endian field into a message. */
void setField(std::vector<unsigned char>& message, std::size_t offset, std::size_t width,
              unsigned long long value);

/** Writes seconds and nanoseconds at offset 34. */
void setTimestamp(std::vector<unsigned char>& message, unsigned long long ns);
