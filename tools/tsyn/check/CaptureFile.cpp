#include "tools/tsyn/check/CaptureFile.h"

#include <pcap/pcap.h>

namespace tsyn {
namespace {

/** libpcap begins its reason with the name in some cases only. */
std::string withoutName(const std::string& reason, const std::string& path) {
    const std::string name = path + ": ";
    return reason.compare(0, name.size(), name) == 0 ? reason.substr(name.size()) : reason;
}

}  // namespace

CaptureFile::~CaptureFile() {
    if (handle_ != nullptr) {
        pcap_close(handle_);
    }
}

std::string CaptureFile::open(const std::string& path) {
    path_ = path;
    char reason[PCAP_ERRBUF_SIZE] = "";
    pcap_t* const capture =
        pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_NANO, reason);
    if (capture == nullptr) {
        return path + ": cannot be read (" + withoutName(reason, path) +
               "); name a pcap or pcapng file";
    }
    handle_ = capture;
    if (pcap_datalink(capture) != DLT_EN10MB) {
        const char* const name = pcap_datalink_val_to_name(pcap_datalink(capture));
        return path + ": holds " + (name != nullptr ? name : "unknown") +
               " frames, not Ethernet; capture on the Ethernet interface itself";
    }
    return {};
}

bool CaptureFile::next(CaptureFrame& frame) {
    pcap_pkthdr* header = nullptr;
    const unsigned char* bytes = nullptr;
    const int result = pcap_next_ex(handle_, &header, &bytes);
    if (result != 1) {
        if (result != PCAP_ERROR_BREAK) {
            error_ = path_ + ": cannot be read beyond frame " + std::to_string(count_) + " (" +
                     pcap_geterr(handle_) + "); capture again";
        }
        return false;
    }
    constexpr std::uint64_t kNsPerSecond = 1000000000;
    frame.number = ++count_;
    // With nanosecond precision asked for, tv_usec counts nanoseconds.
    frame.timeNs = static_cast<std::uint64_t>(header->ts.tv_sec) * kNsPerSecond +
                   static_cast<std::uint64_t>(header->ts.tv_usec);
    frame.bytes = bytes;
    frame.captured = header->caplen;
    frame.onWire = header->len;
    return true;
}

}  // namespace tsyn
