#include "profile/LinkWatch.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <initializer_list>

namespace {

int openNetlink() {
    const int netlink = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK;
    if (netlink >= 0 &&
        bind(netlink, reinterpret_cast<const sockaddr*>(&address), sizeof address) < 0) {
        close(netlink);
        return -1;
    }
    return netlink;
}

/** Whether a datagram of length bytes tells that an interface has gone. */
bool tellsDeletion(const unsigned char* datagram, std::size_t length, int index) {
    std::size_t at = 0;
    while (length - at >= sizeof(nlmsghdr)) {
        nlmsghdr header{};
        std::memcpy(&header, datagram + at, sizeof header);
        if (header.nlmsg_len < sizeof header || header.nlmsg_len > length - at) {
            return false;
        }
        ifinfomsg interface {};
        if (header.nlmsg_type == RTM_DELLINK &&
            header.nlmsg_len >= NLMSG_LENGTH(sizeof interface)) {
            std::memcpy(&interface, datagram + at + NLMSG_HDRLEN, sizeof interface);
            if (interface.ifi_index == index) {
                return true;
            }
        }
        const std::size_t step = NLMSG_ALIGN(header.nlmsg_len);
        at = step < length - at ? at + step : length;
    }
    return false;
}

}  // namespace

LinkWatch::LinkWatch(const char* interfaceName)
    : interfaceName_(interfaceName),
      netlink_(openNetlink()),
      query_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {}

LinkWatch::~LinkWatch() {
    for (const int descriptor : {netlink_, query_}) {
        if (descriptor >= 0) {
            close(descriptor);
        }
    }
}

/** A queue that overflowed (ENOBUFS) goes on with what is left: the look that follows tells the
 *  state, however many messages were lost. */
bool LinkWatch::takeMessages(int index) {
    alignas(nlmsghdr) unsigned char datagram[8192];
    bool deleted = false;
    for (;;) {
        const ssize_t length = recv(netlink_, datagram, sizeof datagram, MSG_DONTWAIT);
        if (length < 0 && errno != ENOBUFS && errno != EINTR) {
            return deleted;
        }
        if (length > 0) {
            deleted = tellsDeletion(datagram, static_cast<std::size_t>(length), index) || deleted;
        }
    }
}

LinkWatch::State LinkWatch::look(int index) {
    State state{};
    state.wasDeleted = netlink_ >= 0 && takeMessages(index);
    ifreq request{};
    std::strncpy(request.ifr_name, interfaceName_, IFNAMSIZ - 1);
    if (ioctl(query_, SIOCGIFINDEX, &request) < 0) {
        return state;
    }
    state.index = request.ifr_ifindex;
    constexpr int kCarries = IFF_UP | IFF_RUNNING;
    state.isUp =
        ioctl(query_, SIOCGIFFLAGS, &request) == 0 && (request.ifr_flags & kCarries) == kCarries;
    return state;
}
