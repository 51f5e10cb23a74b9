#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

// An Ethernet frame with a PTP message of 44 bytes, as the interface with this address sends it.
Bytes ptpFrame(unsigned messageType, unsigned sequenceId, unsigned sourceAddress = 1);
Bytes taggedPtpFrame(unsigned messageType, unsigned sequenceId, unsigned tci);

struct ReceivedFrame {
    Bytes bytes;
    std::optional<std::int64_t> hardwareNs;
    std::optional<std::int64_t> softwareNs;
    std::optional<unsigned> vlanTci;
};

// A raw socket with hardware timestamps, set up and used as a PTP program does.
class PtpPort {
public:
    static constexpr unsigned kHardwareStamps = 0x45;

    explicit PtpPort(const std::string& ifName, unsigned stampFlags = kHardwareStamps);
    ~PtpPort();
    PtpPort(const PtpPort&) = delete;
    PtpPort& operator=(const PtpPort&) = delete;

    int descriptor() const { return fd_; }
    void send(const Bytes& frame) const;

    // Awaits a frame; nothing when none comes.
    std::optional<ReceivedFrame> receive(int timeoutMs = 2000) const;
    // Awaits a transmit timestamp, with the frame it belongs to.
    std::optional<ReceivedFrame> transmitStamp(int timeoutMs = 2000) const;

private:
    ReceivedFrame take(int flags) const;

    int fd_;
};

// Switches the card's timestamping on; 0 or an errno.
int enableStamping(const std::string& ifName);
