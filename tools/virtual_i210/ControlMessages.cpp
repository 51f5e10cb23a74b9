#include "tools/virtual_i210/ControlMessages.h"

#include <algorithm>
#include <cstring>

#include "tools/virtual_i210/Timespec.h"

namespace virtual_i210 {

namespace {

constexpr std::size_t kSoftware = 0;
constexpr std::size_t kHardware = 2;

struct Timestamps {
    timespec times[3];
};

bool isStamps(const cmsghdr& header) {
    return header.cmsg_level == SOL_SOCKET && header.cmsg_type == SO_TIMESTAMPING &&
           header.cmsg_len >= CMSG_LEN(sizeof(Timestamps));
}

Timestamps stampsOf(const cmsghdr& header) {
    Timestamps stamps{};
    std::memcpy(&stamps, CMSG_DATA(&header), sizeof stamps);
    return stamps;
}

bool isSet(const timespec& time) {
    return time.tv_sec != 0 || time.tv_nsec != 0;
}

cmsghdr* findStamps(msghdr& received) {
    for (cmsghdr* header = CMSG_FIRSTHDR(&received); header != nullptr;
         header = CMSG_NXTHDR(&received, header)) {
        if (isStamps(*header)) {
            return header;
        }
    }
    return nullptr;
}

void putStamps(const cmsghdr* given, const StampReport& report, ControlWriter& writer) {
    Timestamps stamps{};
    if (given != nullptr && report.withSoftware) {
        stamps.times[kSoftware] = stampsOf(*given).times[kSoftware];
    }
    if (report.hardwareNs) {
        stamps.times[kHardware] = toTimespec(*report.hardwareNs);
    }
    if (isSet(stamps.times[kSoftware]) || isSet(stamps.times[kHardware])) {
        writer.put(SOL_SOCKET, SO_TIMESTAMPING, &stamps, sizeof stamps);
    }
}

}  // namespace

ControlWriter::ControlWriter(void* buffer, std::size_t capacity)
    : buffer_(static_cast<unsigned char*>(buffer)), capacity_(buffer == nullptr ? 0 : capacity) {}

void ControlWriter::put(int level, int type, const void* data, std::size_t length) {
    const std::size_t left = capacity_ - used_;
    if (left < sizeof(cmsghdr)) {
        truncated_ = true;
        return;
    }
    truncated_ = truncated_ || left < CMSG_LEN(length);
    cmsghdr header{};
    header.cmsg_level = level;
    header.cmsg_type = type;
    header.cmsg_len = std::min<std::size_t>(left, CMSG_LEN(length));
    std::memcpy(buffer_ + used_, &header, sizeof header);
    std::memcpy(buffer_ + used_ + CMSG_LEN(0), data, header.cmsg_len - CMSG_LEN(0));
    used_ += std::min<std::size_t>(left, CMSG_SPACE(length));
}

void simulateKernelStamps(msghdr& received, std::int64_t realtimeNs) {
    const timespec time = toTimespec(realtimeNs);
    for (cmsghdr* header = CMSG_FIRSTHDR(&received); header != nullptr;
         header = CMSG_NXTHDR(&received, header)) {
        unsigned char* data = CMSG_DATA(header);
        const std::size_t length = header->cmsg_len - CMSG_LEN(0);
        if (header->cmsg_level != SOL_SOCKET) {
            continue;
        }
        if (header->cmsg_type == SO_TIMESTAMP && length >= sizeof(timeval)) {
            const timeval coarse = {time.tv_sec, static_cast<suseconds_t>(time.tv_nsec / 1000)};
            std::memcpy(data, &coarse, sizeof coarse);
        } else if ((header->cmsg_type == SO_TIMESTAMPNS || isStamps(*header)) &&
                   length >= sizeof time) {
            std::memcpy(data, &time, sizeof time);
        }
    }
}

std::optional<std::int64_t> softwareStampNs(msghdr& received) {
    const cmsghdr* header = findStamps(received);
    if (header == nullptr) {
        return std::nullopt;
    }
    const timespec time = stampsOf(*header).times[kSoftware];
    if (!isSet(time)) {
        return std::nullopt;
    }
    return toNs(time);
}

int deliverControl(msghdr& received, const StampReport& report, msghdr& target) {
    ControlWriter writer(target.msg_control, target.msg_controllen);
    if (findStamps(received) == nullptr) {
        putStamps(nullptr, report, writer);
    }
    for (cmsghdr* header = CMSG_FIRSTHDR(&received); header != nullptr;
         header = CMSG_NXTHDR(&received, header)) {
        if (isStamps(*header)) {
            putStamps(header, report, writer);
        } else {
            writer.put(header->cmsg_level, header->cmsg_type, CMSG_DATA(header),
                       header->cmsg_len - CMSG_LEN(0));
        }
    }
    target.msg_controllen = writer.used();
    return writer.truncated() ? MSG_CTRUNC : 0;
}

}  // namespace virtual_i210
