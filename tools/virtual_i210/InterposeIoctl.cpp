#include <linux/ethtool.h>
#include <linux/net_tstamp.h>
#include <linux/ptp_clock.h>
#include <linux/sockios.h>
#include <net/if.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "tools/virtual_i210/Descriptors.h"
#include "tools/virtual_i210/OwnThread.h"
#include "tools/virtual_i210/PhcReading.h"
#include "tools/virtual_i210/RealFunctions.h"
#include "tools/virtual_i210/Timespec.h"

/** What the card's driver answers to requests about its clock and its interface. */

namespace {

using virtual_i210::CardState;
using virtual_i210::Descriptor;
using virtual_i210::failWith;
using virtual_i210::real;

ptp_clock_time toPtpTime(std::int64_t ns) {
    const virtual_i210::SplitTime parts = virtual_i210::split(ns);
    ptp_clock_time time{};
    time.sec = parts.seconds;
    time.nsec = static_cast<__u32>(parts.ns);
    return time;
}

ptp_clock_time systemTime() {
    const virtual_i210::ClockReading reading;
    return toPtpTime(virtual_i210::realtimeNowNs());
}

ptp_clock_time phcTime(CardState& card) {
    return toPtpTime(virtual_i210::readPhcNs(card));
}

int answerCapabilities(void* argument) {
    ptp_clock_caps capabilities{};
    capabilities.max_adj = virtual_i210::kMaxAdjustmentPpb;
    std::memcpy(argument, &capabilities, sizeof capabilities);
    return 0;
}

int answerOffset(CardState& card, void* argument) {
    auto& request = *static_cast<ptp_sys_offset*>(argument);
    if (request.n_samples > PTP_MAX_SAMPLES) {
        return failWith(EINVAL);
    }
    ptp_clock_time* time = request.ts;
    for (unsigned i = 0; i < request.n_samples; ++i) {
        *time++ = systemTime();
        *time++ = phcTime(card);
    }
    *time = systemTime();
    return 0;
}

int answerExtendedOffset(CardState& card, void* argument) {
    auto& request = *static_cast<ptp_sys_offset_extended*>(argument);
    if (request.n_samples > PTP_MAX_SAMPLES) {
        return failWith(EINVAL);
    }
    for (unsigned i = 0; i < request.n_samples; ++i) {
        request.ts[i][0] = systemTime();
        request.ts[i][1] = phcTime(card);
        request.ts[i][2] = systemTime();
    }
    return 0;
}

int phcIoctl(const Descriptor& phc, unsigned long request, void* argument) {
    CardState& card = virtual_i210::attachedState()->cards[phc.card.load()];
    switch (request) {
    case PTP_CLOCK_GETCAPS:
    case PTP_CLOCK_GETCAPS2:
        return answerCapabilities(argument);
    case PTP_SYS_OFFSET:
    case PTP_SYS_OFFSET2:
        return answerOffset(card, argument);
    case PTP_SYS_OFFSET_EXTENDED:
    case PTP_SYS_OFFSET_EXTENDED2:
        return answerExtendedOffset(card, argument);
    case PTP_SYS_OFFSET_PRECISE:
    case PTP_SYS_OFFSET_PRECISE2:
        return failWith(EOPNOTSUPP);
    default:
        return failWith(ENOTTY);
    }
}

void describeStamping(const CardState& card, void* data) {
    ethtool_ts_info info{};
    info.cmd = ETHTOOL_GET_TS_INFO;
    info.so_timestamping = SOF_TIMESTAMPING_TX_SOFTWARE | SOF_TIMESTAMPING_RX_SOFTWARE |
                           SOF_TIMESTAMPING_SOFTWARE | SOF_TIMESTAMPING_TX_HARDWARE |
                           SOF_TIMESTAMPING_RX_HARDWARE | SOF_TIMESTAMPING_RAW_HARDWARE;
    virtual_i210::noteAskedFor(card);
    info.phc_index = card.faults.phcHidden.load() != 0 ? -1 : card.phcIndex;
    info.tx_types = 1u << HWTSTAMP_TX_OFF | 1u << HWTSTAMP_TX_ON;
    info.rx_filters = 1u << HWTSTAMP_FILTER_NONE | 1u << HWTSTAMP_FILTER_ALL |
                      1u << HWTSTAMP_FILTER_PTP_V2_EVENT | 1u << HWTSTAMP_FILTER_PTP_V2_L2_EVENT;
    std::memcpy(data, &info, sizeof info);
}

int ethtoolIoctl(int fd, ifreq& request, CardState& card) {
    std::uint32_t command = 0;
    std::memcpy(&command, request.ifr_data, sizeof command);
    const auto refusal = static_cast<int>(card.faults.ethtoolErrno.load());
    if (refusal != 0) {
        return failWith(refusal);
    }
    const int result = real().ioctl(fd, SIOCETHTOOL, &request);
    if (result != 0) {
        return result;
    }
    if (command == ETHTOOL_GET_TS_INFO) {
        describeStamping(card, request.ifr_data);
    } else if (command == ETHTOOL_GDRVINFO) {
        constexpr char kDriver[] = "igb";
        std::memcpy(request.ifr_data + offsetof(ethtool_drvinfo, driver), kDriver, sizeof kDriver);
    }
    return result;
}

/** The card's filter for a wish, or nothing: it stamps either event messages or every frame. */
bool chooseFilter(int wish, int& filter) {
    if (wish == HWTSTAMP_FILTER_NONE || wish == HWTSTAMP_FILTER_ALL) {
        filter = wish;
        return true;
    }
    filter = HWTSTAMP_FILTER_PTP_V2_EVENT;
    return wish >= HWTSTAMP_FILTER_PTP_V2_L4_EVENT && wish <= HWTSTAMP_FILTER_PTP_V2_DELAY_REQ;
}

int setStamping(CardState& card, void* data) {
    hwtstamp_config config{};
    std::memcpy(&config, data, sizeof config);
    int filter = 0;
    if (config.flags != 0) {
        return failWith(EINVAL);
    }
    if ((config.tx_type != HWTSTAMP_TX_OFF && config.tx_type != HWTSTAMP_TX_ON) ||
        !chooseFilter(config.rx_filter, filter)) {
        return failWith(ERANGE);
    }
    config.rx_filter = filter;
    card.txType.store(static_cast<std::uint32_t>(config.tx_type));
    card.rxFilter.store(static_cast<std::uint32_t>(filter));
    std::memcpy(data, &config, sizeof config);
    return 0;
}

int getStamping(const CardState& card, void* data) {
    hwtstamp_config config{};
    config.tx_type = static_cast<int>(card.txType.load());
    config.rx_filter = static_cast<int>(card.rxFilter.load());
    std::memcpy(data, &config, sizeof config);
    return 0;
}

/** The kernel looks at the caller's rights and at the interface before it asks the driver, which
 *  here is one that cannot stamp: that refusal alone is overruled. */
int stampingIoctl(int fd, unsigned long request, ifreq& interface, CardState& card) {
    hwtstamp_config probe{};
    ifreq probing = interface;
    probing.ifr_data = reinterpret_cast<char*>(&probe);
    if (real().ioctl(fd, SIOCSHWTSTAMP, &probing) != 0 && request == SIOCSHWTSTAMP &&
        (errno == EPERM || errno == ENODEV)) {
        return -1;
    }
    if (request == SIOCGHWTSTAMP) {
        return getStamping(card, interface.ifr_data);
    }
    const auto refusal = static_cast<int>(card.faults.hwtstampErrno.load());
    return refusal != 0 ? failWith(refusal) : setStamping(card, interface.ifr_data);
}

bool concernsCards(unsigned long request) {
    return request == SIOCETHTOOL || request == SIOCSHWTSTAMP || request == SIOCGHWTSTAMP;
}

}  // namespace

VIRTUAL_I210_EXPORT int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    virtual_i210::chargeCall();
    if (const Descriptor* phc =
            virtual_i210::descriptorOf(fd, virtual_i210::DescriptorKind::kPhc)) {
        return phcIoctl(*phc, request, argument);
    }
    auto* state = concernsCards(request) ? virtual_i210::stateForCall() : nullptr;
    if (state == nullptr || argument == nullptr) {
        return real().ioctl(fd, request, argument);
    }
    auto& interface = *static_cast<ifreq*>(argument);
    CardState* card = state->findCard(interface.ifr_name);
    if (card == nullptr || interface.ifr_data == nullptr) {
        return real().ioctl(fd, request, argument);
    }
    return request == SIOCETHTOOL ? ethtoolIoctl(fd, interface, *card)
                                  : stampingIoctl(fd, request, interface, *card);
}
