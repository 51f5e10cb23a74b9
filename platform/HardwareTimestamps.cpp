#include <linux/if_packet.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/DbgLog.h"
#include "platform/CardSteps.h"
#include "platform/CycleCounter.h"
#include "platform/Descriptors.h"
#include "platform/i210helper.h"
#include "wire/EthernetFrame.h"

namespace {

constexpr const char* kLogSource = log_source::kHardwareClock;

// In cycles of the time-stamp counter, so the duration depends on the processor: some 20 ms at
// 2.5 GHz, which is many times what the card takes and far below a Sync period.
constexpr unsigned long long kTxTimestampCycles = 50000000;
constexpr useconds_t kTxFirstPauseMicroseconds = 1;
constexpr useconds_t kTxPollMicroseconds = 50;
// Before the one reading that still counts once the cycles are used up: they may have passed while
// this thread was off the processor.
constexpr useconds_t kTxGraceMicroseconds = 1000;

// The kernel adds three times, an error report and the stripped tag, in all below 200 bytes on
// either ABI. A host may switch more on for the process-wide socket; what does not fit is cut off,
// and the stamp with it when it comes last.
constexpr std::size_t kErrorQueueControlSize = 524;
constexpr std::size_t kReceiveControlSize = 512;
// Of the sent frame, which comes back with its stamp. Nobody looks at it, so it may be cut.
constexpr std::size_t kSentFrameSize = 256;
// More than a message has behind a header with a tag.
constexpr int kReadPast = 512;

struct Timestamping {
    timespec software, transformed, hardware;
};

/** One receive call's message header with its storage. */
template <std::size_t ControlSize>
struct ReceivedMessage {
    ReceivedMessage(unsigned char* data, std::size_t size) : block{data, size} {
        header.msg_name = name;
        header.msg_namelen = sizeof name;
        header.msg_iov = &block;
        header.msg_iovlen = 1;
        header.msg_control = control;
        header.msg_controllen = sizeof control;
    }

    unsigned char name[16] = {};
    alignas(cmsghdr) unsigned char control[ControlSize] = {};
    iovec block;
    msghdr header{};
};

/** The control message's value, or null when it is of another kind or too short. */
template <typename Value>
const Value* controlValue(const cmsghdr& message, int level, int type) {
    if (message.cmsg_level != level || message.cmsg_type != type ||
        message.cmsg_len < CMSG_LEN(sizeof(Value))) {
        return nullptr;
    }
    return reinterpret_cast<const Value*>(CMSG_DATA(&message));
}

/** Calls visit for every control message that lies whole inside the control buffer. */
template <typename Visit>
void forEachControlMessage(msghdr& header, const Visit& visit) {
    const unsigned char* const end =
        static_cast<unsigned char*>(header.msg_control) + header.msg_controllen;
    for (cmsghdr* message = CMSG_FIRSTHDR(&header); message != nullptr;
         message = CMSG_NXTHDR(&header, message)) {
        const auto* const start = reinterpret_cast<unsigned char*>(message);
        if (message->cmsg_len < sizeof(cmsghdr) ||
            message->cmsg_len > static_cast<std::size_t>(end - start)) {
            return;
        }
        visit(*message);
    }
}

bool receiveFromErrorQueue(int socket, msghdr* header, std::size_t controlSize) {
    header->msg_controllen = controlSize;
    return recvmsg(socket, header, MSG_ERRQUEUE) >= 0;
}

/** The frame's length once a VLAN tag that the kernel moved into the auxiliary data is back. */
int withItsTag(const tpacket_auxdata& aux, unsigned char* frame, int length) {
    constexpr unsigned int kTagPresent = TP_STATUS_VLAN_VALID | TP_STATUS_VLAN_TPID_VALID;
    if ((aux.tp_status & kTagPresent) == 0 || aux.tp_vlan_tpid == 0) {
        return length;
    }
    return ethernet::putTagBack(frame, length, aux.tp_vlan_tpid, aux.tp_vlan_tci);
}

/** The receive time of a frame, PHC ns, 0 without one; its tag is put back on the way. */
unsigned long long takeReceiveTime(msghdr& header, unsigned char* buffer, int* length) {
    unsigned long long rxNs = 0;
    forEachControlMessage(header, [&](const cmsghdr& control) {
        if (const auto* times = controlValue<Timestamping>(control, SOL_SOCKET, SO_TIMESTAMPING)) {
            rxNs = toNs(times->hardware);
        } else if (const auto* aux =
                       controlValue<tpacket_auxdata>(control, SOL_PACKET, PACKET_AUXDATA)) {
            *length = withItsTag(*aux, buffer, *length);
        }
    });
    return rxNs;
}

QueueState latestQueueState = QueueState::kEmpty;

}  // namespace

unsigned long long hardwareTimeOf(msghdr& header) {
    unsigned long long ns = 0;
    forEachControlMessage(header, [&ns](const cmsghdr& control) {
        if (const auto* times = controlValue<Timestamping>(control, SOL_SOCKET, SO_TIMESTAMPING)) {
            ns = toNs(times->hardware);
        }
    });
    return ns;
}

unsigned long long getTxTimestamp(int socket) {
    unsigned char sentFrame[kSentFrameSize];
    ReceivedMessage<kErrorQueueControlSize> message(sentFrame, sizeof sentFrame);
    sched_yield();
    const unsigned long long start = cycleCount();
    usleep(kTxFirstPauseMicroseconds);
    for (;;) {
        const unsigned long long now = cycleCount();
        if (receiveFromErrorQueue(socket, &message.header, sizeof message.control)) {
            break;
        }
        usleep(kTxPollMicroseconds);
        if (now - start >= kTxTimestampCycles) {
            usleep(kTxGraceMicroseconds);
            if (!receiveFromErrorQueue(rawSocket(), &message.header, sizeof message.control)) {
                ZEB_LOG(kError, "Timestamp still missing!\n");
                return 0;
            }
            break;
        }
    }
    return hardwareTimeOf(message.header);
}

unsigned long long getRxTimestampedData(int socket, unsigned char* buffer, int* length) {
    const auto capacity = static_cast<std::size_t>(std::max(*length, 0));
    std::memset(buffer, 0, capacity);
    ReceivedMessage<kReceiveControlSize> message(buffer, capacity);
    ssize_t received = -1;
    do {
        *length = 0;
        message.header.msg_controllen = sizeof message.control;
        received = recvmsg(socket, &message.header, 0);
        sched_yield();
    } while (received < 0);
    *length = static_cast<int>(received);

    return takeReceiveTime(message.header, buffer, length);
}

QueueState queueState() {
    return latestQueueState;
}

int receiveQueuedFrame(int socket, unsigned char* buffer, int capacity, unsigned long long* rxNs) {
    ReceivedMessage<kReceiveControlSize> message(buffer, static_cast<std::size_t>(capacity));
    const ssize_t received = recvmsg(socket, &message.header, MSG_DONTWAIT);
    if (received < 0) {
        const bool isEmpty = errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
        latestQueueState = isEmpty ? QueueState::kEmpty : QueueState::kFailed;
        return 0;
    }
    latestQueueState = QueueState::kFrame;
    int length = static_cast<int>(received);
    // Handlers look past the end of a short message: at zeros, not at what came before.
    std::memset(buffer + length, 0,
                static_cast<std::size_t>(std::min(capacity - length, kReadPast)));
    *rxNs = takeReceiveTime(message.header, buffer, &length);
    return length;
}
