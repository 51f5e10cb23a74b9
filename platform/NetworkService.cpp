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
#include "platform/PtpFilter.h"
#include "wire/FrameTrace.h"

namespace {

constexpr const char* kLogSource = log_source::kNetwork;
constexpr int kMacSize = 6;
constexpr int kMessageSize = 256;
constexpr int kMaxPayload = 2048;
constexpr int kReceiveWaitMilliseconds = 5;
constexpr useconds_t kSecondTryMicroseconds = 150;
constexpr useconds_t kThirdTryMicroseconds = 450;
constexpr unsigned int kTpid = 0x8100;
constexpr unsigned int kPtpEtherType = 0x88F7;
constexpr unsigned int kVlanIdMask = 0xFFF;
constexpr unsigned char kGptpAddress[kMacSize] = {0x01, 0x80, 0xC2, 0x00, 0x00, 0x0E};

unsigned char clockIdentity[8];

// One pair for the process: a caller that alternates between interfaces gets ratios across them.
unsigned long long previousSystemTime = 0;
unsigned long long previousPhcTime = 0;

unsigned char* putBigEndian16(unsigned char* at, unsigned int value) {
    at[0] = static_cast<unsigned char>(value >> 8);
    at[1] = static_cast<unsigned char>(value);
    return at + 2;
}

sockaddr_ll gptpAddressOn(int interfaceIndex) {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(kPtpEtherType);
    address.sll_ifindex = interfaceIndex;
    address.sll_halen = kMacSize;
    std::memcpy(address.sll_addr, kGptpAddress, kMacSize);
    return address;
}

/** Waits for a frame. A pending transmit timestamp raises only POLLERR, which is no frame. */
bool waitForFrame(int socket) {
    pollfd descriptor{socket, POLLIN, 0};
    return poll(&descriptor, 1, kReceiveWaitMilliseconds) > 0 && (descriptor.revents & POLLIN) != 0;
}

}  // namespace

template <typename Backend>
NetworkService<Backend>::NetworkService(char const* wantedName)
    : mac_{}, domain_(0), vlanId_(0), vlanPriority_(0), interface_{} {
    // A missing name fails like the name of no interface, one step later.
    const char* const interfaceName = wantedName != nullptr ? wantedName : "";
    if (const InterfaceDataManager* instance = InterfaceDataManager::getInstance()) {
        vlanId_ = instance->block.cfg.VlanID;
        vlanPriority_ = static_cast<int>(instance->block.cfg.VlanPrio);
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
    initBpf();
}

template <typename Backend>
NetworkService<Backend>::~NetworkService() noexcept = default;

template <typename Backend>
const char* NetworkService<Backend>::what() const noexcept {
    return std::exception::what();
}

template <typename Backend>
void NetworkService<Backend>::initBpf() {
    std::array<sock_filter, kPtpFilterLength> filter = ptpFilter(vlanId_, domain_);
    const sock_fprog program{static_cast<unsigned short>(filter.size()), filter.data()};
    const int result =
        setsockopt(interface_.s, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program);
    const int reason = errno;
    ZEB_LOG(kDebug, "setsockopt() returned: %d ...\n", result);
    if (result < 0) {
        ZEB_LOG(kError, "setsockopt() failed ... Reason is:%s\n", strerror(reason));
    }
}

template <typename Backend>
int NetworkService<Backend>::buildFrame(const unsigned char* destination, void const* payload,
                                        int length, unsigned char* frame) const {
    unsigned char* at = std::copy_n(destination, kMacSize, frame);
    at = std::copy_n(mac_, kMacSize, at);
    if (vlanId_ >= 0) {
        at = putBigEndian16(at, kTpid);
        // Unmasked: an id or priority beyond its field spills into the neighbouring bits.
        at = putBigEndian16(at, (static_cast<unsigned int>(vlanPriority_) << 13) |
                                    static_cast<unsigned int>(vlanId_));
    }
    at = putBigEndian16(at, kPtpEtherType);
    std::memcpy(at, payload, static_cast<std::size_t>(length));
    return headerLength() + length;
}

template <typename Backend>
int NetworkService<Backend>::sendto(void const* payload, int length, int /*flags*/,
                                    sockaddr const* destination,
                                    unsigned int /*destinationLength*/) {
    if (length < 0 || length > kMaxPayload) {
        errno = EMSGSIZE;
        return -1;
    }
    unsigned char frame[18 + kMaxPayload];
    sockaddr_ll target{};
    std::memcpy(&target, destination, sizeof target);
    const int frameLength = buildFrame(target.sll_addr, payload, length, frame);
    i210helper::e1000_ptp_get_time(interface_.name);
    const sockaddr_ll link = gptpAddressOn(interface_.index);
    const auto send = [&] {
        return static_cast<int>(::sendto(interface_.s, frame, static_cast<size_t>(frameLength), 0,
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

template <typename Backend>
int NetworkService<Backend>::transmit(unsigned char const* payload, int length,
                                      ptp_time_t* txTime) {
    const sockaddr_ll destination = gptpAddressOn(interface_.index);
    sendto(payload, std::clamp(length, 0, kMessageSize), 0,
           reinterpret_cast<const sockaddr*>(&destination), sizeof destination);
    i210helper::retrieve_TX_timestamp(
        interface_, reinterpret_cast<ptpv2hdr_t*>(const_cast<unsigned char*>(payload)), txTime);
    DisplayIOData(interface_.name, txTime, "<<", const_cast<unsigned char*>(payload), length);
    return 0;
}

template <typename Backend>
bool NetworkService<Backend>::isForeignVlan(const unsigned char* frame) const {
    const unsigned int tpid = (static_cast<unsigned int>(frame[12]) << 8) | frame[13];
    const unsigned int tci = (static_cast<unsigned int>(frame[14]) << 8) | frame[15];
    return tpid != kTpid || static_cast<int>(tci & kVlanIdMask) != vlanId_;
}

template <typename Backend>
int NetworkService<Backend>::receive(unsigned char* buffer, int capacity, ptp_time_t* rxTime) {
    if (!waitForFrame(interface_.s)) {
        return 0;
    }
    int length = capacity;
    const unsigned long long rxNs = getRxTimestampedData(interface_.s, buffer, &length);
    if (vlanId_ >= 0 && isForeignVlan(buffer)) {
        *rxTime = ptp_time_t{};
        return 0;
    }
    *rxTime = toPtpTime(rxNs);
    if (std::equal(mac_, mac_ + kMacSize, buffer + kMacSize)) {
        return 0;
    }
    const int payloadLength = length - headerLength();
    if (payloadLength <= 0) {
        return 0;
    }
    std::memmove(buffer, buffer + headerLength(), static_cast<std::size_t>(payloadLength));
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
    std::memcpy(mac, request.ifr_hwaddr.sa_data, kMacSize);
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
