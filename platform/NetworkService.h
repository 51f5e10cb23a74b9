#pragma once

#include <sys/socket.h>

#include <exception>

#include "base/Exports.h"
#include "base/ptptime.h"
#include "platform/i210helper.h"
#include "wire/EthernetFrame.h"

/** Tag of the packet-socket service; never defined. */
struct ZEB_EXPORT sock;

/** Ethernet port of the daemon: frames PTP messages, sends and receives them with hardware
 *  timestamps. No locks: one thread receives, senders take turns. */
template <typename Backend>
class ZEB_EXPORT NetworkService : public std::exception {
public:
    /** Takes VLAN and domain from the configuration and the process-wide socket, opening it first
     *  when there is none. Never fails: without a socket, sends and receives do nothing. */
    ZEB_ENTRY explicit NetworkService(char const* wantedName);
    ZEB_ENTRY ~NetworkService() noexcept override;
    ZEB_ENTRY const char* what() const noexcept override;

    /** Frames and sends a payload of at most 2048 bytes to the six address bytes of a
     *  sockaddr_ll, of which destinationLength bytes are read (all for 0). Returns the bytes
     *  sent or -1; a full queue (ENOMSG) is tried three times. */
    ZEB_ENTRY int sendto(void const* payload, int length, int flags, sockaddr const* destination,
                         unsigned int destinationLength);

    /** Sends to the gPTP address (at most 256 bytes) and reads the transmit timestamp,
     *  PHC time, zero when there is none. Always 0. */
    ZEB_ENTRY int transmit(unsigned char const* payload, int length, ptp_time_t* txTime);

    /** Waits up to 5 ms for one frame. buffer holds capacity + ethernet::kVlanTagSize bytes.
     *  Returns the payload length, 0 for nothing, a foreign VLAN or an own frame; rxTime is PHC
     *  time. */
    ZEB_ENTRY int receive(unsigned char* buffer, int capacity, ptp_time_t* rxTime);

    /** Cross-timestamp, ns: system time, PHC time, their difference, and PHC rate over system rate
     *  since the previous call of the process (1 at first). */
    ZEB_ENTRY bool GetLocalSystemCapabilities(long long& systemTime, long long& phcTime,
                                              long long& offset, long double& rateRatio);

    /** Does nothing: the socket stays open for the life of the process. */
    ZEB_ENTRY void Close();

private:
    friend char* GetInterfaceName(NetworkService<sock>* service);
    friend unsigned char* BuildPTPClockIdentityFromMacAdress(NetworkService<sock>* service);

    unsigned char mac_[ethernet::kMacSize];
    unsigned char domain_;
    ethernet::VlanTag vlan_;
    UInterface interface_;
};

extern template class NetworkService<sock>;

/** Reads an interface's hardware address into mac[6]. Returns 0, or the failed call's result. */
ZEB_ENTRY int macaddress(char const* interfaceName, unsigned char* mac);

/** The clock identity MAC[0..2] FF FE MAC[3..5]; one buffer for the process, rewritten by every
 *  call. */
ZEB_ENTRY unsigned char* BuildPTPClockIdentityFromMacAdress(NetworkService<sock>* service);

/** The interface name inside the service. */
ZEB_ENTRY char* GetInterfaceName(NetworkService<sock>* service);
