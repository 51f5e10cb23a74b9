#include "timebase/osipc.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <mutex>

#include "base/DbgLog.h"
#include "base/Undestroyed.h"
#include "include/gPtpTimeQuality.h"

Undestroyed<std::string> shmNameStorage ZEB_STORAGE_OF("_Z8shm_nameB5cxx11");
Undestroyed<std::map<std::string, gPtpTimeDataStruct*>> recordMapStorage
    ZEB_STORAGE_OF("_ZN5OSipc3mapB5cxx11E");
void* OSipc::global_master_offset_buffer = nullptr;
unsigned int segmentMode = 0;
SegmentSteps segmentSteps{startAnyway, tellStandardError};

namespace {

constexpr const char* kLogSource = log_source::kSegment;

std::mutex mapMutex;
// Apart from the map's, which a traced process may hold for ever while the name is still to come.
std::mutex nameMutex;

std::string segmentName() {
    const std::lock_guard<std::mutex> lock(nameMutex);
    return shm_name;
}

enum class MapStep { kDone, kOpen, kResize, kMap };

constexpr int kOpenTraceLine = 120;
constexpr int kResizeTraceLine = 129;
constexpr int kMapTraceLine = 136;

/** Sets the file-creation mask to 0 for one scope: every local process may read and write. */
class OpenFileMask {
public:
    OpenFileMask() : saved_(umask(0)) {}
    ~OpenFileMask() { umask(saved_); }
    OpenFileMask(const OpenFileMask&) = delete;
    OpenFileMask& operator=(const OpenFileMask&) = delete;

private:
    mode_t saved_;
};

int openForEveryone(const std::string& name) {
    const OpenFileMask openMask;
    ZEB_LOG_AS("instance", kDebug, "shm_name.c_str(): %s\n", name.c_str());
    return shm_open(name.c_str(), O_CREAT | O_RDWR, 0777);
}

/** The mode is set behind the creation, too: the mask of the process cuts it there, and a segment
 *  that an earlier run left behind has its own. */
int openWithMode(const std::string& name) {
    ZEB_LOG_AS("instance", kDebug, "shm_name.c_str(): %s\n", name.c_str());
    const int descriptor = shm_open(name.c_str(), O_CREAT | O_RDWR, segmentMode);
    if (descriptor >= 0 && fchmod(descriptor, segmentMode) != 0) {
        ZEB_LOG_AS("instance", kError, "The segment keeps its access mode: %s\n", strerror(errno));
    }
    return descriptor;
}

MapStep sizeAndMap(int descriptor, void** segment) {
    // The owner only matters to other users of the machine; the access mode lets them in anyway.
    if (fchown(descriptor, getuid(), getgid()) != 0) {
        errno = 0;
    }
    if (ftruncate(descriptor, kSharedSegmentSize) != 0) {
        return MapStep::kResize;
    }
    *segment = mmap(nullptr, kSharedSegmentSize, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    return *segment == MAP_FAILED ? MapStep::kMap : MapStep::kDone;
}

/** Whoever reads what an earlier daemon left there must not take a half of it for a whole: where
 *  that one kept a sequence, it is odd before anything else goes, and 0 after all is gone. */
void clear(unsigned char* segment) {
    constexpr std::size_t kAt =
        kSharedRecordOffset + kTimeQualityOffset + offsetof(gPtpTimeQuality, sequence);
    auto* const sequence = reinterpret_cast<unsigned int*>(segment + kAt);
    gPtpTimeQuality left;
    std::memcpy(&left, segment + kSharedRecordOffset + kTimeQualityOffset, sizeof left);
    if (left.magic == kTimeQualityMagic) {
        __atomic_store_n(sequence, left.sequence | 1, __ATOMIC_RELAXED);
        __atomic_thread_fence(__ATOMIC_SEQ_CST);
    }
    std::memset(segment, 0, kAt);
    std::memset(segment + kAt + sizeof left.sequence, 0,
                kSharedSegmentSize - kAt - sizeof left.sequence);
    __atomic_store_n(sequence, 0, __ATOMIC_RELEASE);
}

const char* callOf(MapStep failed) {
    switch (failed) {
    case MapStep::kOpen:
        return "shm_open";
    case MapStep::kResize:
        return "ftruncate";
    default:
        return "mmap";
    }
}

int traceLineOf(MapStep failed) {
    switch (failed) {
    case MapStep::kOpen:
        return kOpenTraceLine;
    case MapStep::kResize:
        return kResizeTraceLine;
    default:
        return kMapTraceLine;
    }
}

}  // namespace

OSipc::~OSipc() = default;

gPtpTimeDataStruct* OSipc::instance(char const* name) {
    const std::lock_guard<std::mutex> lock(mapMutex);
    const std::string key(name);
    for (;;) {
        const auto known = map.find(key);
        if (known != map.end()) {
            return known->second;
        }
        const std::string shared = segmentName();
        const int descriptor = segmentMode == 0 ? openForEveryone(shared) : openWithMode(shared);
        void* segment = nullptr;
        const MapStep failed = descriptor < 0 ? MapStep::kOpen : sizeAndMap(descriptor, &segment);
        if (failed == MapStep::kDone) {
            global_master_offset_buffer = segment;
            auto* const bytes = static_cast<unsigned char*>(segment);
            clear(bytes);
            auto* const record = reinterpret_cast<gPtpTimeDataStruct*>(bytes + kSharedRecordOffset);
            map.emplace(key, record);
            close(descriptor);
            return record;
        }
        if (!abortsOnTrace()) {
            segmentSteps.tellFailure(callOf(failed), shared);
            if (descriptor >= 0) {
                close(descriptor);
            }
            return nullptr;
        }
        // Traced processes try for ever and keep each round's descriptor for inspection.
        traceLine("instance", traceLineOf(failed));
    }
}

bool startAnyway(const char* /*interfaceName*/) {
    return true;
}

void tellStandardError(const char* call, const std::string& /*segment*/) {
    std::fprintf(stderr, "%s: %s\n", call, strerror(errno));
}

void nameSegment(const std::string& name) {
    const std::lock_guard<std::mutex> lock(nameMutex);
    shm_name = name;
}

void getTime(timespec* /*time*/) {}
