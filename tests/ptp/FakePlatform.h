#pragma once

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "platform/NetworkService.h"

/* Stands in for the network service and the card, so that the message handlers meet exactly the
 * times that a test gives. Every answer is used once, in order; a call without a prepared answer
 * fails the test. */

struct LocalCapabilities {
    long long systemTime, phcTime, offset;
    long double ratio;
};

struct FakePlatform {
    std::deque<unsigned long long> txTimes;        ///< of transmit, ns
    std::deque<long long> phcTimes;                ///< of e1000_ptp_get_time, ns
    std::deque<ptp_ext_time_t> extTimes;           ///< of e1000_ptp_get_ext_time
    std::deque<LocalCapabilities> capabilities;    ///< of GetLocalSystemCapabilities
    std::deque<std::function<void()>> sleeps;      ///< what happens during each usleep
    bool answersEverything = false;                ///< gives zero instead of failing the test
    std::vector<std::vector<unsigned char>> sent;  ///< payloads of transmit
    unsigned int lastSleep = 0;                    ///< microseconds

    /** True when every prepared answer has been asked for. */
    bool isUsedUp() const;
};

/** The one of this process. */
FakePlatform& platform();

/** What the fake interface is called and its clock identity, of MAC 00-1B-21-AA-BB-CC. */
inline constexpr char kInterface[] = "eth1";
inline constexpr char kClockIdentity[] = "001b21fffeaabbcc";
