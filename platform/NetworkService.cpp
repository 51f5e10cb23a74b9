#include "platform/NetworkService.h"

#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "api/InterfaceDataManager.h"
#include "base/DbgLog.h"
#include "base/Extended80.h"
#include "platform/CardSteps.h"
#include "platform/PtpFilter.h"
#include "wire/EthernetFrame.h"
#include "wire/FrameTrace.h"
#include "wire/ptpwire.h"

namespace {

constexpr const char* kLogSource = log_source::kNetwork;
constexpr int kMaxPayload = 2048;
constexpr int kReceiveWaitMilliseconds = 5;
constexpr useconds_t kSecondTryMicroseconds = 150;
constexpr useconds_t kThirdTryMicroseconds = 450;

unsigned char clockIdentity[8];

// One pair for the process: a caller that alternates between interfaces gets ratios across them.
unsigned long long previousSystemTime = 0;
unsigned long long previousPhcTime = 0;

void initBpf(int socket, int vlanId, unsigned char domain) {
    std::array<sock_filter, kPtpFilterLength> filter = ptpFilter(vlanId, domain);
    const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
    const int result = setsockopt(socket, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program);
    const int reason = errno;
    ZEB_LOG(kDebug, "setsockopt() returned: %d ...\n", result);
    if (result < 0) {
        ZEB_LOG(kError, "setsockopt() failed ... Reason is:%s\n", strerror(reason));
    }
}

/** The address that a caller handed over. Callers that tell no length mean a whole sockaddr_ll. */
sockaddr_ll linkLayerAddress(sockaddr const* given, unsigned int givenLength) {
    sockaddr_ll address{};
    const std::size_t length =
        givenLength == 0 ? sizeof address : std::min<std::size_t>(givenLength, sizeof address);
    std::memcpy(&address, given, length);
    return address;
}

/** Reads the PHC for what the read leaves behind: the first one opens the clock, which
 *  cross-timestamps find open or do without, and hosts that keep the pointer to the process-wide
 *  reading see the time of the latest frame there. */
void readPhcBeforeSend(const char* interfaceName) {
    i210helper::e1000_ptp_get_time(interfaceName);
}

/** Waits for a frame. A pending transmit timestamp raises only POLLERR, which is no frame. */
bool waitForFrame(int socket) {
    pollfd descriptor{socket, POLLIN, 0};
    return poll(&descriptor, 1, kReceiveWaitMilliseconds) > 0 && (descriptor.revents & POLLIN) != 0;
}

}  // namespace

sockaddr_ll gptpAddressOn(int interfaceIndex) {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ethernet::kPtpProtocol);
    address.sll_ifindex = interfaceIndex;
    address.sll_halen = ethernet::kMacSize;
    std::copy(std::begin(ethernet::kGptpAddress), std::end(ethernet::kGptpAddress),
              address.sll_addr);
    return address;
}

int sendFrameAfterPhcRead(const UInterface& port, unsigned char* frame, int length,
                          int /*headerSize*/) {
    readPhcBeforeSend(port.name);
    const sockaddr_ll link = gptpAddressOn(port.index);
    const auto send = [&] {
        return static_cast<int>(::sendto(port.s, frame, static_cast<size_t>(length), 0,
                                         reinterpret_cast<const sockaddr*>(&link), sizeof link));
    };
    int sent = send();
    if (sent == -1 && errno == ENOMSG) {
        usleep(kSecondTryMicroseconds);
        sent = send();
        if (sent < 0) {
            usleep(kThirdTryMicroseconds);
            sent = send();
        }
    }
    return sent;
}

int receiveFrameShortly(int socket, unsigned char* buffer, int capacity, unsigned long long* rxNs) {
    if (!waitForFrame(socket)) {
        return 0;
    }
    int length = capacity;
    *rxNs = getRxTimestampedData(socket, buffer, &length);
    return length;
}

template <typename Backend>
NetworkService<Backend>::NetworkService(char const* wantedName)
    : mac_{}, domain_(0), vlan_{}, interface_{} {
    // A missing name fails like the name of no interface, one step later.
    const char* const interfaceName = wantedName != nullptr ? wantedName : "";
    if (const InterfaceDataManager* instance = InterfaceDataManager::getInstance()) {
        vlan_ = {instance->block.cfg.VlanID, static_cast<int>(instance->block.cfg.VlanPrio)};
        domain_ = instance->block.cfg.Domain;
    }
    ZEB_LOG(kDebug, "Creating network service ...\n");
    interface_.s = i210helper::e1000_getsockid(interfaceName);
    ZEB_LOG(kDebug, "Socket fd uif.s: %d ...\n", interface_.s);
    if (interface_.s == 0) {
        interface_.s = EnableI210Timestamping(interfaceName);
    }
    ZEB_LOG(kDebug, "Socket fd uif.s: %d ...\n", interface_.s);
    std::strncpy(interface_.name, interfaceName, kUInterfaceNameSize - 1);
    ifreq request{};
    std::strncpy(request.ifr_name, interfaceName, IFNAMSIZ - 1);
    ioctl(interface_.s, SIOCGIFINDEX, &request);
    interface_.index = request.ifr_ifindex;
    macaddress(interfaceName, mac_);
    initBpf(interface_.s, vlan_.id, domain_);
}

template <typename Backend>
NetworkService<Backend>::~NetworkService() noexcept = default;

template <typename Backend>
const char* NetworkService<Backend>::what() const noexcept {
    return std::exception::what();
}

template <typename Backend>
int NetworkService<Backend>::sendto(void const* payload, int length, int /*flags*/,
                                    sockaddr const* destination, unsigned int destinationLength) {
    if (length < 0 || length > kMaxPayload) {
        errno = EMSGSIZE;
        return -1;
    }
    unsigned char frame[ethernet::kTaggedHeaderSize + kMaxPayload];
    const sockaddr_ll target = linkLayerAddress(destination, destinationLength);
    const int headerSize = ethernet::writeHeader(frame, target.sll_addr, mac_, vlan_);
    std::copy_n(static_cast<const unsigned char*>(payload), length, frame + headerSize);
    return cardSteps.sendFrame(interface_, frame, headerSize + length, headerSize);
}

template <typename Backend>
int NetworkService<Backend>::transmit(unsigned char const* payload, int length,
                                      ptp_time_t* txTime) {
    const sockaddr_ll destination = gptpAddressOn(interface_.index);
    sendto(payload, std::clamp(length, 0, wire::kMessageBufferSize), 0,
           reinterpret_cast<const sockaddr*>(&destination), sizeof destination);
    i210helper::retrieve_TX_timestamp(
        interface_, reinterpret_cast<ptpv2hdr_t*>(const_cast<unsigned char*>(payload)), txTime);
    DisplayIOData(interface_.name, txTime, "<<", const_cast<unsigned char*>(payload), length);
    return 0;
}

template <typename Backend>
int NetworkService<Backend>::receive(unsigned char* buffer, int capacity, ptp_time_t* rxTime) {
    unsigned long long rxNs = 0;
    const int length = cardSteps.receiveFrame(interface_.s, buffer, capacity, &rxNs);
    if (length == 0) {
        return 0;
    }
    if (vlan_.isTagged() && ethernet::isForeignVlan(buffer, vlan_)) {
        *rxTime = ptp_time_t{};
        return 0;
    }
    *rxTime = toPtpTime(rxNs);
    if (ethernet::isFrom(buffer, mac_)) {
        return 0;
    }
    const int payloadLength = length - vlan_.headerSize();
    if (payloadLength <= 0) {
        return 0;
    }
    std::memmove(buffer, buffer + vlan_.headerSize(), static_cast<std::size_t>(payloadLength));
    DisplayIOData(interface_.name, rxTime, ">>", buffer, length);
    return payloadLength;
}

template <typename Backend>
bool NetworkService<Backend>::GetLocalSystemCapabilities(long long& systemTime, long long& phcTime,
                                                         long long& offset,
                                                         long double& rateRatio) {
    unsigned long long systemNs = 0;
    unsigned long long phcNs = 0;
    if (!i210helper::e1000_ptp_get_ext_time(interface_.name, &systemNs, &phcNs)) {
        ZEB_LOG(kError, "i210helper::e1000_ptp_get_ext_time() failed!\n");
        return false;
    }
    systemTime = static_cast<long long>(systemNs);
    phcTime = static_cast<long long>(phcNs);
    offset = signedDiff(systemNs, phcNs);
    rateRatio = 1;
    if (previousSystemTime != 0 && previousPhcTime != 0) {
        rateRatio = static_cast<long double>(signedDiff(phcNs, previousPhcTime)) /
                    static_cast<long double>(signedDiff(systemNs, previousSystemTime));
    }
    previousSystemTime = systemNs;
    previousPhcTime = phcNs;
    return true;
}

template <typename Backend>
void NetworkService<Backend>::Close() {}

template class NetworkService<sock>;

int macaddress(char const* interfaceName, unsigned char* mac) {
    const int query = socket(AF_INET, SOCK_DGRAM, 0);
    ifreq request{};
    std::strncpy(request.ifr_name, interfaceName, IFNAMSIZ - 1);
    request.ifr_addr.sa_family = AF_INET;
    const int result = ioctl(query, SIOCGIFHWADDR, &request);
    if (result != 0) {
        // The query socket stays open: a caller that looks errno up must find the ioctl's.
        return result;
    }
    std::memcpy(mac, request.ifr_hwaddr.sa_data, ethernet::kMacSize);
    return close(query);
}

unsigned char* BuildPTPClockIdentityFromMacAdress(NetworkService<sock>* service) {
    const unsigned char* const mac = service->mac_;
    const unsigned char identity[] = {mac[0], mac[1], mac[2], 0xFF, 0xFE, mac[3], mac[4], mac[5]};
    std::copy(std::begin(identity), std::end(identity), clockIdentity);
    return clockIdentity;
}

char* GetInterfaceName(NetworkService<sock>* service) {
    return service->interface_.name;
}
