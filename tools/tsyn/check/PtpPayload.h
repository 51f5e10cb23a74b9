#pragma once

#include "tools/tsyn/check/CaptureFrame.h"

namespace tsyn {

/** The PTP message of an Ethernet frame. */
struct PtpPayload {
    bool isPtp = false;
    bool vlanTagged = false;
    const unsigned char* bytes = nullptr;
    std::size_t size = 0; /**< captured bytes behind the EtherType, any padding included */
};

/** Looks behind any VLAN tags. */
PtpPayload findPtp(const CaptureFrame& frame);

}  // namespace tsyn
