#include <fcntl.h>
#include <linux/ethtool.h>
#include <linux/if_packet.h>
#include <linux/net_tstamp.h>
#include <linux/ptp_clock.h>
#include <linux/sockios.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/DbgLog.h"
#include "platform/CardSteps.h"
#include "platform/CrossTimestamp.h"
#include "platform/Descriptors.h"
#include "platform/PhcDevice.h"
#include "platform/i210helper.h"

long long i210TimeOffset = 0;

namespace {

constexpr const char* kLogSource = log_source::kHardwareClock;
constexpr unsigned int kCrossTimestampSamples = 25;
constexpr const char* kNoIndex = "Failed to find PTP device index\n";
constexpr const char* kNotOpened = "Failed to open PTP clock device\n";

int rawSocketDescriptor = 0;
int phcDescriptor = 0;  // 0: not open yet, -1: the one opening failed
timespec phcReading{};
pthread_mutex_t phcReadingMutex = PTHREAD_MUTEX_INITIALIZER;

ifreq requestFor(const char* interfaceName) {
    ifreq request{};
    std::strncpy(request.ifr_name, interfaceName, IFNAMSIZ - 1);
    return request;
}

/** Finds and opens the PHC on first use. Returns null, or the line that says what failed. */
const char* openPhcOnce(char const* interfaceName) {
    const int index = findPhcIndex(const_cast<char*>(interfaceName));
    if (index < 0) {
        return kNoIndex;
    }
    if (phcDescriptor == 0) {
        phcDescriptor = awayFromZero(open(phcDevicePath(index).c_str(), O_RDWR));
    }
    return phcDescriptor < 0 ? kNotOpened : nullptr;
}

/** Stores a reading as the process-wide one and returns what that now is: the old value when
 *  fresh is null. The lock keeps seconds and nanoseconds of one reading together. */
timespec updatePhcReading(const timespec* fresh) {
    pthread_mutex_lock(&phcReadingMutex);
    if (fresh != nullptr) {
        phcReading = *fresh;
    }
    const timespec reading = phcReading;
    pthread_mutex_unlock(&phcReadingMutex);
    return reading;
}

bool setPromiscuous(int socket, const char* interfaceName) {
    ifreq request = requestFor(interfaceName);
    ioctl(socket, SIOCGIFFLAGS, &request);
    request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_PROMISC);
    return ioctl(socket, SIOCSIFFLAGS, &request) >= 0;
}

bool bindToInterface(int socket, int index) {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = index;
    return bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) >= 0;
}

bool enableCardTimestamps(int socket, int index) {
    ifreq request{};
    request.ifr_ifindex = index;
    if (ioctl(socket, SIOCGIFNAME, &request) < 0) {
        return false;
    }
    hwtstamp_config config{};
    config.tx_type = HWTSTAMP_TX_ON;
    config.rx_filter = HWTSTAMP_FILTER_PTP_V2_EVENT;
    request.ifr_data = reinterpret_cast<char*>(&config);
    return ioctl(socket, SIOCSHWTSTAMP, &request) >= 0;
}

bool setIntOption(int socket, int level, int option, int value) {
    return setsockopt(socket, level, option, &value, sizeof value) >= 0;
}

bool enableSocketTimestamps(int socket) {
    constexpr int kHardware =
        SOF_TIMESTAMPING_TX_HARDWARE | SOF_TIMESTAMPING_RX_HARDWARE | SOF_TIMESTAMPING_RAW_HARDWARE;
    return setIntOption(socket, SOL_SOCKET, SO_TIMESTAMPING, kHardware) &&
           setIntOption(socket, SOL_SOCKET, SO_TIMESTAMPNS, 1) &&
           setIntOption(socket, SOL_PACKET, PACKET_AUXDATA, 1);
}

/** Gives a half-made socket up. -1 rather than the closed number stays behind: that number may
 *  soon be one of the host's descriptors. */
int abandonSocket(int socket) {
    close(socket);
    rawSocketDescriptor = -1;
    return -1;
}

}  // namespace

int rawSocket() {
    return rawSocketDescriptor;
}

void closeCard() {
    for (int* const descriptor : {&rawSocketDescriptor, &phcDescriptor}) {
        const int closed = *descriptor;
        *descriptor = 0;
        if (closed > 0) {
            close(closed);
        }
    }
}

int findPhcIndex(char* interfaceName) {
    ethtool_ts_info info{};
    info.cmd = ETHTOOL_GET_TS_INFO;
    ifreq request = requestFor(interfaceName);
    request.ifr_data = reinterpret_cast<char*>(&info);
    // Before the set-up, descriptor 0 would be the host's standard input.
    errno = EBADF;
    if (rawSocketDescriptor == 0 || ioctl(rawSocketDescriptor, SIOCETHTOOL, &request) < 0) {
        ZEB_LOG(kError, "findPTPIndex: ioctl(SIOETHTOOL) failed! ifr.ifr_name:%s Reason:%s\n",
                request.ifr_name, strerror(errno));
        return -1;
    }
    return info.phc_index;
}

timespec* get_ptp_hardware_clock_phc(char* interfaceName) {
    if (const char* problem = openPhcOnce(interfaceName)) {
        ZEB_LOG(kError, "%s", problem);
        return &phcReading;
    }
    timespec now{};
    if (clock_gettime(clockIdOf(phcDescriptor), &now) == 0) {
        updatePhcReading(&now);
    }
    return &phcReading;
}

int set_ptp_hardware_clock_phc(char const* interfaceName, unsigned short /*upperSeconds*/,
                               unsigned int seconds, unsigned int nanoseconds) {
    if (const char* problem = openPhcOnce(interfaceName)) {
        ZEB_LOG(kError, "%s", problem);
        return 0;
    }
    // Through int, so that both ABIs refuse the same values.
    timespec time{};
    time.tv_sec = static_cast<int>(seconds);
    time.tv_nsec = static_cast<int>(nanoseconds);
    if (clock_settime(clockIdOf(phcDescriptor), &time) < 0) {
        ZEB_LOG(kError, "clock_settime() failed!\n");
        return 0;
    }
    return 1;
}

int EnableI210Timestamping(char const* interfaceName) {
    ZEB_LOG(kAlways, "Enable I210 Timestamping on interface '%s'\n", interfaceName);
    const int raw = awayFromZero(socket(AF_PACKET, SOCK_RAW, htons(ETH_P_ALL)));
    rawSocketDescriptor = raw;
    if (raw < 0) {
        perror("listener: socket");
        return -1;
    }
    if (!setPromiscuous(raw, interfaceName)) {
        ZEB_LOG(kError, "ioctl() failed! Reason is: %s\n", strerror(errno));
        return abandonSocket(raw);
    }
    if (!setIntOption(raw, SOL_SOCKET, SO_REUSEADDR, 1)) {
        perror("setsockopt");
        close(raw);
        exit(1);
    }
    ifreq request = requestFor(interfaceName);
    if (ioctl(raw, SIOCGIFINDEX, &request) < 0) {
        ZEB_LOG(kError, "ioctl() failed! Reason is: %s\n", strerror(errno));
        return abandonSocket(raw);
    }
    ZEB_LOG(kDebug, "Binding to interface %d ...\n", request.ifr_ifindex);
    int readBack = 0;
    socklen_t readBackLength = sizeof readBack;
    if (!bindToInterface(raw, request.ifr_ifindex) ||
        !enableCardTimestamps(raw, request.ifr_ifindex) || !enableSocketTimestamps(raw) ||
        getsockopt(raw, SOL_PACKET, PACKET_AUXDATA, &readBack, &readBackLength) < 0) {
        ZEB_LOG(kError, "errno: %s\n", strerror(errno));
        return abandonSocket(raw);
    }
    // Log readers expect the value given for the timestamp option here, not the one read back.
    constexpr int kEnabled = 1;
    ZEB_LOG(kAlways, "enabled: %d optlen: %d\n", kEnabled, static_cast<int>(readBackLength));
    return raw;
}

void retrieve_RX_timestamp(UInterface& /*interface*/, ptpv2hdr_t* /*header*/,
                           ptp_ext_time_t* /*time*/) {
    exit(0);
}

ptp_ext_time_t narrowestOf25(int phcDevice) {
    ptp_sys_offset offset{};
    offset.n_samples = kCrossTimestampSamples;
    // A clock that is not open leaves the readings 0, as a refused request does. Descriptor 0 is
    // the host's.
    if (phcDevice > 0) {
        ioctl(phcDevice, PTP_SYS_OFFSET, &offset);
    }
    return narrowestBracket(offset.ts, kCrossTimestampSamples);
}

i210helper::i210helper() = default;

i210helper::~i210helper() = default;

int i210helper::e1000_getsockid(char const* /*interfaceName*/) {
    return rawSocketDescriptor;
}

long long i210helper::e1000_ptp_get_time(char const* interfaceName) {
    get_ptp_hardware_clock_phc(const_cast<char*>(interfaceName));
    return static_cast<long long>(toNs(updatePhcReading(nullptr)));
}

bool i210helper::e1000_ptp_get_ext_time(char const* /*interfaceName*/,
                                        unsigned long long* systemTime,
                                        unsigned long long* phcTime) {
    const ptp_ext_time_t best = cardSteps.crossTimestamp(phcDescriptor);
    *systemTime = best.systemTime;
    *phcTime = best.phcTime;
    return true;
}

int i210helper::e1000_ptp_set_time(char const* interfaceName, unsigned short upperSeconds,
                                   unsigned int seconds, unsigned int nanoseconds) {
    return set_ptp_hardware_clock_phc(interfaceName, upperSeconds, seconds, nanoseconds);
}

bool i210helper::retrieve_TX_timestamp(UInterface& /*interface*/, ptpv2hdr_t* /*header*/,
                                       ptp_time_t* txTime) {
    *txTime = ptp_time_t{};
    *txTime = toPtpTime(cardSteps.transmitTimestamp(rawSocketDescriptor));
    return true;
}

bool i210helper::retrieve_RX_timestamp(UInterface& /*interface*/, ptpv2hdr_t* /*header*/,
                                       ptp_ext_time_t* /*time*/) {
    return true;
}

bool i210helper::GetExtenxdedTimestampingInformation(char const* /*interfaceName*/,
                                                     ptpv2hdr_t* /*header*/, ptp_time_t* /*time*/,
                                                     unsigned long long* /*systemTime*/,
                                                     unsigned long long* /*phcTime*/) {
    exit(0);
}

bool i210helper::e1000_ptp_set_compensation(char const* /*interfaceName*/,
                                            long long /*compensation*/) {
    exit(0);
}

bool i210helper::e1000_check_link_state(char const* /*interfaceName*/) {
    exit(0);
}

__attribute__((weak)) void i210helper::set_stack_Id(char const* /*stackId*/) {}
