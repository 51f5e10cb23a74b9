#pragma once

#include <sys/socket.h>
#include <time.h>

#include <cstddef>
#include <cstdint>
#include <optional>

namespace virtual_i210 {

/** Appends control messages to a buffer as the kernel does for recvmsg: what does not fit is cut
 *  and told by MSG_CTRUNC. */
class ControlWriter {
public:
    ControlWriter(void* buffer, std::size_t capacity);

    void put(int level, int type, const void* data, std::size_t length);
    std::size_t used() const { return used_; }
    bool truncated() const { return truncated_; }

private:
    unsigned char* buffer_;
    std::size_t capacity_;
    std::size_t used_ = 0;
    bool truncated_ = false;
};

/** The kernel's own timestamp of a received message, in ns of CLOCK_REALTIME. */
std::optional<std::int64_t> softwareStampNs(msghdr& received);

/** Replaces the kernel's timestamps of a received message by this time, where it has some. */
void simulateKernelStamps(msghdr& received, std::int64_t realtimeNs);

struct StampReport {
    std::optional<std::int64_t> hardwareNs;
    bool withSoftware = false;
};

/** Hands the control messages of `received` to the caller's `target`, with the timestamps that the
 *  card would have reported. Returns MSG_CTRUNC when they do not fit, else 0. */
int deliverControl(msghdr& received, const StampReport& report, msghdr& target);

}  // namespace virtual_i210
