#pragma once

#include <ctime>

#include "base/Exports.h"
#include "base/ptptime.h"

struct ptpv2hdr_t;

inline constexpr int kUInterfaceNameSize = 48;

/** Socket handle of a network service. */
struct UInterface {
    int s;                           ///< the process-wide raw socket, -1 after a failed set-up
    char name[kUInterfaceNameSize];  ///< NUL-terminated
    int index;
};

/** PHC index of an interface, or -1 (logged). Needs the raw socket. */
ZEB_ENTRY int findPhcIndex(char* interfaceName);

/** Reads the PHC; returns the library's one copy of the reading, unchanged on failure. The first
 *  caller's interface chooses the device for the life of the process. */
ZEB_ENTRY timespec* get_ptp_hardware_clock_phc(char* interfaceName);

/** Sets the PHC to 32-bit seconds and nanoseconds; the upper seconds are ignored. 1 or 0. */
ZEB_ENTRY int set_ptp_hardware_clock_phc(char const* interfaceName, unsigned short upperSeconds,
                                         unsigned int seconds, unsigned int nanoseconds);

/** Opens the process-wide raw packet socket on an interface, promiscuous and with hardware
 *  timestamps. Returns it, or -1 (logged); ends the process when SO_REUSEADDR is refused. */
ZEB_ENTRY int EnableI210Timestamping(char const* interfaceName);

/** Transmit timestamp of the frame just sent, PHC ns; 0 when none came (logged). Polls for some
 *  tens of milliseconds. Timestamps are not matched to frames: one sender at a time. */
ZEB_ENTRY unsigned long long getTxTimestamp(int socket);

/** Receives one frame, blocking. length: in the capacity (the buffer has ethernet::kVlanTagSize
 *  bytes more, for a tag that the kernel stripped), out the frame length. Returns the receive
 *  timestamp, PHC ns, 0 when the frame has none. */
ZEB_ENTRY unsigned long long getRxTimestampedData(int socket, unsigned char* buffer, int* length);

/** Ends the process with status 0: receive timestamps come with the frame. */
ZEB_ENTRY void retrieve_RX_timestamp(UInterface& interface, ptpv2hdr_t* header,
                                     ptp_ext_time_t* time);

/** The card's clock and timestamps by the names that the protocol uses. */
class ZEB_EXPORT i210helper {
public:
    ZEB_ENTRY i210helper();
    i210helper(const i210helper&) = default;
    i210helper& operator=(const i210helper&) = default;
    ZEB_ENTRY virtual ~i210helper();

    /** The process-wide raw socket, 0 before it is opened. */
    ZEB_ENTRY static int e1000_getsockid(char const* interfaceName);

    /** PHC time, ns. */
    ZEB_ENTRY static long long e1000_ptp_get_time(char const* interfaceName);

    /** System and PHC time of the narrowest of 25 brackets, ns; both 0 when the PHC is not open.
     *  Always true. */
    ZEB_ENTRY static bool e1000_ptp_get_ext_time(char const* interfaceName,
                                                 unsigned long long* systemTime,
                                                 unsigned long long* phcTime);

    ZEB_ENTRY static int e1000_ptp_set_time(char const* interfaceName, unsigned short upperSeconds,
                                            unsigned int seconds, unsigned int nanoseconds);

    /** Transmit timestamp of the frame just sent, 0 when none came. Always true. */
    ZEB_ENTRY static bool retrieve_TX_timestamp(UInterface& interface, ptpv2hdr_t* header,
                                                ptp_time_t* txTime);

    /** True; does nothing, since receive timestamps come with the frame. */
    ZEB_ENTRY static bool retrieve_RX_timestamp(UInterface& interface, ptpv2hdr_t* header,
                                                ptp_ext_time_t* time);

    /** These three end the process with status 0: Linux offers no such operation. */
    ZEB_ENTRY static bool GetExtenxdedTimestampingInformation(char const* interfaceName,
                                                              ptpv2hdr_t* header, ptp_time_t* time,
                                                              unsigned long long* systemTime,
                                                              unsigned long long* phcTime);
    ZEB_ENTRY static bool e1000_ptp_set_compensation(char const* interfaceName,
                                                     long long compensation);
    ZEB_ENTRY static bool e1000_check_link_state(char const* interfaceName);

    /** Told the stack identifier before a PHC read. Does nothing; a host may supply its own. */
    ZEB_ENTRY static void set_stack_Id(char const* stackId);
};

/** Reserved for hosts; the library neither reads nor writes it. */
ZEB_EXPORT extern long long i210TimeOffset;
