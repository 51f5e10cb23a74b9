#pragma once

#include <sys/types.h>

#include <string>

/** Dynamic clock id of a clock device's descriptor. */
inline clockid_t clockIdOf(int descriptor) {
    return static_cast<clockid_t>((~static_cast<unsigned int>(descriptor) << 3) | 3);
}

/** Device of a PHC index. There is room for two digits: a longer number is cut to its first two,
 *  as deployed device names expect. */
inline std::string phcDevicePath(int index) {
    return "/dev/ptp" + std::to_string(index).substr(0, 2);
}
