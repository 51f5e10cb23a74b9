#pragma once

#include <ctime>
#include <map>
#include <mutex>
#include <string>

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
    static gPtpTimeDataStruct* instance(char const* name);

    static std::map<std::string, gPtpTimeDataStruct*> map;
    static std::mutex mutex;
    static gPtpTimeDataStruct* record;         ///< most recently mapped record
    static void* global_master_offset_buffer;  ///< most recently mapped segment
};

/** Kept in the interface; does nothing. */
void getTime(timespec* time);
