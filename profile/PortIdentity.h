#pragma once

#include <algorithm>
#include <array>

#include "ptp/ptpclass.h"
#include "wire/ptpwire.h"

/** Clock identity and port number as they stand on the wire. */
using PortIdentity = std::array<unsigned char, wire::kPortIdentitySize>;

inline PortIdentity portIdentityAt(const unsigned char* at) {
    PortIdentity identity;
    std::copy_n(at, identity.size(), identity.begin());
    return identity;
}

inline PortIdentity sourceOf(const unsigned char* message) {
    return portIdentityAt(message + wire::kSourceClockIdentity);
}

inline unsigned short portNumberOf(const PortIdentity& identity) {
    return static_cast<unsigned short>(wire::load16(identity.data() + wire::kClockIdentitySize));
}

/** The key that the port table files this port under. */
inline PortKey keyOf(const PortIdentity& identity) {
    return {static_cast<long long>(wire::load64(identity.data())), portNumberOf(identity)};
}
