#include "tools/tsyn/daemon/RecordView.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cstring>

#include "tools/common/OwnDescriptor.h"
#include "tools/tsyn/daemon/QualityReport.h"

namespace tsyn {
namespace {

void copyRecord(const unsigned char* segment, gPtpTimeDataStruct& record) {
    unsigned char bytes[sizeof record];
    // The writer is another thread or process, so every byte is fetched anew.
    const volatile unsigned char* source = segment + kSharedRecordOffset;
    for (std::size_t i = 0; i < sizeof bytes; ++i) {
        bytes[i] = source[i];
    }
    std::memcpy(&record, bytes, sizeof record);
}

/** False between two steps of a writer that marks its writing; others mark nothing. */
bool isWhole(const gPtpTimeDataStruct& record) {
    const std::optional<gPtpTimeQuality> quality = qualityOf(record);
    return !quality || quality->sequence % 2 == 0;
}

}  // namespace

RecordView::~RecordView() {
    if (segment_ != nullptr) {
        munmap(const_cast<unsigned char*>(segment_), kSharedSegmentSize);
    }
}

bool RecordView::open(const std::string& interfaceName) {
    if (isOpen()) {
        return true;
    }
    const tools::OwnDescriptor fd(shm_open(("/" + interfaceName).c_str(), O_RDONLY, 0));
    if (!fd.isOpen()) {
        return false;
    }
    struct stat status {};
    void* address = MAP_FAILED;
    // Reading beyond the end of a file that has not been sized yet would raise SIGBUS.
    if (fstat(fd.get(), &status) == 0 && status.st_size >= kSharedSegmentSize) {
        address = mmap(nullptr, kSharedSegmentSize, PROT_READ, MAP_SHARED, fd.get(), 0);
    }
    if (address == MAP_FAILED) {
        return false;
    }
    segment_ = static_cast<const unsigned char*>(address);
    return true;
}

std::optional<gPtpTimeDataStruct> RecordView::snapshot() const {
    if (!isOpen()) {
        return {};
    }
    constexpr int kAttempts = 16;
    gPtpTimeDataStruct first{};
    gPtpTimeDataStruct second{};
    copyRecord(segment_, first);
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        copyRecord(segment_, second);
        if (std::memcmp(&first, &second, sizeof first) == 0 && isWhole(first)) {
            return first;
        }
        first = second;
    }
    return {};
}

}  // namespace tsyn
