#pragma once

#include <linux/if_packet.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "api/InterfaceDataManager.h"
#include "platform/NetworkService.h"
#include "tests/support/Daemon.h"
#include "tests/support/Hex.h"
#include "tests/support/KernelSeam.h"
#include "tests/support/StdoutCapture.h"

using Service = NetworkService<sock>;

inline const Bytes kPayload = {0x10, 0x02, 0x00, 0x2C, 0xAA};

/** A service on a card, with the calls that move frames answered by the test. */
struct ServiceOnCard {
    explicit ServiceOnCard(int vlanId = -1, unsigned int priority = 0, unsigned char domain = 0) {
        DbgTraceLevel = 0;
        TSynInstanceConfig config = masterConfig();
        config.VlanID = vlanId;
        config.VlanPrio = priority;
        config.Domain = domain;
        InterfaceDataManager::getInstance(&config);
        service = std::make_unique<Service>("tsm0");
        kernel.sendto = [this](int, const void* data, std::size_t size, int flags,
                               const sockaddr* to) {
            const auto* bytes = static_cast<const unsigned char*>(data);
            sent.emplace_back(bytes, bytes + size);
            sendFlags = flags;
            std::memcpy(&link, to, sizeof link);
            return static_cast<ssize_t>(size);
        };
    }

    /** Lets the next receive see a frame. */
    int receive(const Bytes& frame, Bytes& buffer, ptp_time_t& time) {
        kernel.poll = [](pollfd* descriptor, int) {
            descriptor->revents = POLLIN;
            return 1;
        };
        kernel.recvmsg = [&](int, msghdr* message, int) {
            std::copy(frame.begin(), frame.end(),
                      static_cast<unsigned char*>(message->msg_iov->iov_base));
            const timespec times[3] = {{0, 0}, {0, 0}, {1700000000, 987654321}};
            auto* const header = static_cast<cmsghdr*>(message->msg_control);
            header->cmsg_len = CMSG_LEN(sizeof times);
            header->cmsg_level = SOL_SOCKET;
            header->cmsg_type = SO_TIMESTAMPING;
            std::memcpy(CMSG_DATA(header), times, sizeof times);
            message->msg_controllen = CMSG_SPACE(sizeof times);
            return static_cast<ssize_t>(frame.size());
        };
        buffer.assign(2052, 0xEE);
        return service->receive(buffer.data(), 2048, &time);
    }

    int send(const Bytes& payload, const std::string& address = "0180c200000e",
             unsigned int addressLength = sizeof(sockaddr_ll)) {
        sockaddr_ll to{};
        const Bytes bytes = fromHex(address);
        std::copy(bytes.begin(), bytes.end(), to.sll_addr);
        return service->sendto(payload.data(), static_cast<int>(payload.size()), 99,
                               reinterpret_cast<const sockaddr*>(&to), addressLength);
    }

    StdoutCapture output;
    CardSandbox sandbox;
    KernelSeam kernel;
    std::unique_ptr<Service> service;
    std::vector<Bytes> sent;
    sockaddr_ll link{};
    int sendFlags = -1;
};

inline Bytes framed(const std::string& header, const Bytes& payload) {
    Bytes frame = fromHex(header);
    frame.insert(frame.end(), payload.begin(), payload.end());
    return frame;
}
