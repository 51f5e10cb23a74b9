#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

using Bytes = std::vector<unsigned char>;

// messageType of what nodes send.
inline constexpr int kSync = 0;
inline constexpr int kPdelayReq = 2;
inline constexpr int kPdelayResp = 3;
inline constexpr int kFollowUp = 8;
inline constexpr int kAnnounce = 11;

/** The patience for what has come already. */
inline constexpr std::chrono::milliseconds kAtOnce{0};

/** A received frame as it was on the wire: a VLAN tag that the kernel took out is put back. */
struct PeerFrame {
    Bytes bytes;
    std::chrono::steady_clock::time_point when;
    std::optional<std::int64_t> hardwareNs;
    std::optional<std::int64_t> softwareNs;

    bool isTagged() const { return bytes.size() > 18 && bytes[12] == 0x81 && bytes[13] == 0x00; }

    /** messageType of the PTP message, -1 for other frames. */
    int ptpType() const;

    /** The PTP message behind the header. */
    Bytes message() const;
};

/** One end of a cable: a packet socket without the library in it. */
class PeerSocket {
public:
    /** Timestamps of a card for what is sent and received, as a PTP program asks for them. */
    static constexpr unsigned kHardwareStamps = 0x45;

    explicit PeerSocket(const std::string& interfaceName, unsigned stampFlags = 0);
    ~PeerSocket();
    PeerSocket(const PeerSocket&) = delete;
    PeerSocket& operator=(const PeerSocket&) = delete;

    int descriptor() const { return socket_; }

    /** Sends a whole frame; the kernel refuses some lengths. */
    bool send(const Bytes& frame) const;

    /** The next frame that arrives, or nothing. */
    std::optional<PeerFrame> receive(
        std::chrono::milliseconds patience = std::chrono::seconds(2)) const;

    /** The next PTP message of a type; others are skipped. */
    std::optional<PeerFrame> awaitType(
        int type, std::chrono::milliseconds patience = std::chrono::seconds(20)) const;

    /** The next transmit timestamp, with the frame that it belongs to. */
    std::optional<PeerFrame> transmitStamp(
        std::chrono::milliseconds patience = std::chrono::seconds(2)) const;

    /** Forgets what has arrived. */
    void drain() const;

private:
    std::optional<PeerFrame> take(int flags) const;

    int socket_;
};

/** Switches a card's timestamping on; 0 or an errno. */
int enableStamping(const std::string& interfaceName);
