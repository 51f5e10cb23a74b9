#pragma once

#include <string>

#include "tools/tsyn/check/CaptureFrame.h"

struct pcap;

namespace tsyn {

/** Reads a capture frame by frame. */
class CaptureFile {
public:
    CaptureFile() = default;
    ~CaptureFile();
    CaptureFile(const CaptureFile&) = delete;
    CaptureFile& operator=(const CaptureFile&) = delete;

    /** Opens a pcap or pcapng file. Returns what went wrong, empty on success. */
    std::string open(const std::string& path);

    /** The next frame, valid until the following call. False at the end or when the file cannot be
     *  read any further, which error() then tells. */
    bool next(CaptureFrame& frame);

    const std::string& error() const { return error_; }

private:
    pcap* handle_ = nullptr;
    std::string path_;
    unsigned long count_ = 0;
    std::string error_;
};

}  // namespace tsyn
