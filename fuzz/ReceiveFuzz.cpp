// Feeds frames with their control messages through the receive path, from the socket to the
// handlers, the kernel answered for. The first byte of an input chooses the VLAN. Receive calls
// follow: a byte with an eighth of the frame's length, one with the control messages' length, these
// and the frame. The error queue takes its control messages from the input too.
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>

#include "api/InterfaceDataManager.h"
#include "ptp/clockitems.h"
#include "ptp/ptpclass.h"
#include "timebase/osipc.h"

namespace {

constexpr int kCapacity = 2048;
constexpr char kInterface[] = "tsb0";
constexpr int kVlanIds[] = {-1, 0, 5, 4096};

/** What is left of the input. */
struct Input {
    const std::uint8_t* at;
    std::size_t left;

    unsigned int byte() {
        if (left == 0) {
            return 0;
        }
        --left;
        return *at++;
    }

    std::size_t take(void* to, std::size_t wanted, std::size_t room) {
        const std::size_t count = std::min({wanted, room, left});
        std::copy_n(at, count, static_cast<std::uint8_t*>(to));
        at += count;
        left -= count;
        return count;
    }
};

Input input{};
gPtpTimeDataStruct record{};

void handle(NetworkService<sock>& service, unsigned char* payload, int length,
            const ptp_time_t& rxTime) {
    PTPMessageFactory factory;
    const std::unique_ptr<PTPMessage> message(
        factory.getPTPMessageInstance(reinterpret_cast<ptpv2hdr_t*>(payload)));
    if (message != nullptr) {
        message->setArrival(&service, rxTime, static_cast<unsigned short>(length));
        message->processIncoming();
    }
}

}  // namespace

extern "C" {

// These take the places of the C library's: no input waits, and none reaches the kernel.
int usleep(useconds_t /*microseconds*/) {
    return 0;
}

int poll(pollfd* descriptor, nfds_t /*count*/, int /*milliseconds*/) {
    descriptor->revents = POLLIN;
    return 1;
}

ssize_t recvmsg(int /*descriptor*/, msghdr* message, int flags) {
    const std::size_t wanted = (flags & MSG_ERRQUEUE) != 0 ? 0 : 8UL * input.byte();
    message->msg_controllen =
        input.take(message->msg_control, input.byte(), message->msg_controllen);
    iovec& block = *message->msg_iov;
    return static_cast<ssize_t>(input.take(block.iov_base, wanted, block.iov_len));
}

ssize_t sendto(int /*descriptor*/, const void* /*data*/, std::size_t size, int /*flags*/,
               const sockaddr* /*address*/, socklen_t /*length*/) {
    return static_cast<ssize_t>(size);
}

int socket(int /*domain*/, int /*type*/, int /*protocol*/) noexcept {
    return open("/dev/null", O_RDONLY);
}

int bind(int /*descriptor*/, const sockaddr* /*address*/, socklen_t /*length*/) noexcept {
    return 0;
}

int setsockopt(int /*descriptor*/, int /*level*/, int /*option*/, const void* /*value*/,
               socklen_t /*length*/) noexcept {
    return 0;
}

int getsockopt(int /*descriptor*/, int /*level*/, int /*option*/, void* /*value*/,
               socklen_t* /*length*/) noexcept {
    return 0;
}

int ioctl(int /*descriptor*/, unsigned long /*request*/, ...) noexcept {
    return 0;
}

int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    if (std::freopen("/dev/null", "w", stdout) == nullptr) {
        return 1;
    }
    DbgTraceLevel = 0;
    OSipc::map[kInterface] = &record;
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    input = {data, size};
    InstanceBlock& block = InterfaceDataManager::getInstance()->block;
    block = InstanceBlock{};
    block.cfg.VlanID = kVlanIds[input.byte() % std::size(kVlanIds)];
    clockItems.clear();
    NetworkService<sock> service(kInterface);
    while (input.left > 0) {
        // On the heap, so that a byte behind the spare ones is noticed.
        const std::unique_ptr<unsigned char[]> buffer(
            new unsigned char[kCapacity + ethernet::kVlanTagSize]);
        ptp_time_t rxTime{};
        const int length = service.receive(buffer.get(), kCapacity, &rxTime);
        if (length > 0) {
            handle(service, buffer.get(), length, rxTime);
        }
    }
    return 0;
}
}
