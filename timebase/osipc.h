#pragma once

#include <ctime>
#include <map>
#include <string>

#include "base/Exports.h"
#include "include/gPtpTimeData.h"

/** Creates, maps and hands out the shared time segment of this process. */
class OSipc {
public:
    OSipc() = default;
    OSipc(const OSipc&) = default;
    OSipc& operator=(const OSipc&) = default;
    virtual ~OSipc();

    /** The record mapped for a name, or null when the segment cannot be had (above trace level 2
     *  it is tried without end instead). The segment is the one that shm_name tells at the first
     *  call for each name, and every such mapping zeroes it. Any thread. */
    ZEB_ENTRY static gPtpTimeDataStruct* instance(char const* name);

    ZEB_EXPORT static std::map<std::string, gPtpTimeDataStruct*> map;
    ZEB_EXPORT static void* global_master_offset_buffer;  ///< most recently mapped segment
};

/** Name of the segment, "/" and the interface name; empty before the daemon runs. Set through
 *  nameSegment while threads run. */
ZEB_EXPORT extern std::string shm_name;

/** Access mode of the segment; 0: every local process may read and write. Set before the daemon's
 *  threads start. */
extern unsigned int segmentMode;

/** What becomes of a segment that cannot be had. */
struct SegmentSteps {
    /** Whether a daemon may start on the interface, as far as its segment goes. Before the first
     *  thread. */
    bool (*mayStart)(const char* interfaceName);

    /** call: what failed, errno: why, segment: "/" and the interface name, empty before a daemon
     *  runs. At each use of the segment. */
    void (*tellFailure)(const char* call, const std::string& segment);
};

extern SegmentSteps segmentSteps;

/** Deployed nodes meet their segment with the first message. */
bool startAnyway(const char* interfaceName);

void tellStandardError(const char* call, const std::string& segment);

/** Names the segment that instance maps from now on. Any thread. */
void nameSegment(const std::string& name);

/** Kept in the interface; does nothing. */
ZEB_ENTRY void getTime(timespec* time);
