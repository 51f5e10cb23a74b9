#pragma once

#include <linux/if_packet.h>
#include <linux/net_tstamp.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <vector>

using Bytes = std::vector<unsigned char>;

constexpr int kSocket = 77;  // no descriptor of this process; the seam answers for it

inline timespec timeOf(time_t seconds, long nanoseconds) {
    timespec time{};
    time.tv_sec = seconds;
    time.tv_nsec = nanoseconds;
    return time;
}

/** What one receive call returns: a frame and control messages. */
struct Reply {
    Bytes frame;
    Bytes control;

    template <typename Value>
    Reply& with(int level, int type, const Value& value) {
        const std::size_t at = control.size();
        control.resize(at + CMSG_SPACE(sizeof value));
        cmsghdr header{};
        header.cmsg_len = CMSG_LEN(sizeof value);
        header.cmsg_level = level;
        header.cmsg_type = type;
        std::memcpy(&control[at], &header, sizeof header);
        std::memcpy(&control[at + CMSG_LEN(0)], &value, sizeof value);
        return *this;
    }

    Reply& withTimes(const timespec& software, const timespec& hardware) {
        const timespec times[3] = {software, software, hardware};
        return with(SOL_SOCKET, SCM_TIMESTAMPING, times);
    }

    Reply& withTag(unsigned int status, unsigned short tpid, unsigned short tci) {
        tpacket_auxdata aux{};
        aux.tp_status = status;
        aux.tp_vlan_tpid = tpid;
        aux.tp_vlan_tci = tci;
        return with(SOL_PACKET, PACKET_AUXDATA, aux);
    }

    ssize_t fill(msghdr* message) const {
        const std::size_t count = std::min(frame.size(), message->msg_iov->iov_len);
        std::copy_n(frame.begin(), count, static_cast<unsigned char*>(message->msg_iov->iov_base));
        std::copy(control.begin(), control.end(),
                  static_cast<unsigned char*>(message->msg_control));
        message->msg_controllen = control.size();
        return static_cast<ssize_t>(count);
    }
};
