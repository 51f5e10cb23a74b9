#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

using Bytes = std::vector<unsigned char>;

/** A received frame as it was on the wire: a VLAN tag that the kernel took out is put back. */
struct PeerFrame {
    Bytes bytes;
    std::chrono::steady_clock::time_point when;

    bool isTagged() const { return bytes.size() > 18 && bytes[12] == 0x81 && bytes[13] == 0x00; }

    /** messageType of the PTP message, -1 for other frames. */
    int ptpType() const;

    /** The PTP message behind the header. */
    Bytes message() const;
};

/** The other end of the cable: a packet socket without the library in it. */
class PeerSocket {
public:
    explicit PeerSocket(const std::string& interfaceName);
    ~PeerSocket();
    PeerSocket(const PeerSocket&) = delete;
    PeerSocket& operator=(const PeerSocket&) = delete;

    /** Sends a whole frame; the kernel refuses some lengths. */
    bool send(const Bytes& frame) const;

    /** The next frame that arrives, or nothing. */
    std::optional<PeerFrame> receive(std::chrono::milliseconds patience) const;

    /** The next PTP message of a type; others are skipped. */
    std::optional<PeerFrame> awaitType(
        int type, std::chrono::milliseconds patience = std::chrono::seconds(20)) const;

    /** Forgets what has arrived. */
    void drain() const;

private:
    int socket_;
};
