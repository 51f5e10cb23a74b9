#pragma once

#include "tests/support/PeerSocket.h"

/** An Ethernet frame with a PTP message of 44 bytes, as the interface with this address sends it.
 */
Bytes ptpFrame(unsigned messageType, unsigned sequenceId, unsigned sourceAddress = 1);

/** The same behind a VLAN tag. */
Bytes taggedPtpFrame(unsigned messageType, unsigned sequenceId, unsigned tci);
