#pragma once

#include <array>
#include <ctime>
#include <deque>
#include <functional>
#include <map>
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

/** Calls of the network service and the card, as FakePlatform::onCall names them. */
enum class PlatformCall { kTransmit, kPhcTime, kExtTime, kCapabilities };

struct FakePlatform {
    std::deque<unsigned long long> txTimes;      ///< of transmit, ns
    std::deque<long long> phcTimes;              ///< of e1000_ptp_get_time, ns
    std::deque<ptp_ext_time_t> extTimes;         ///< of e1000_ptp_get_ext_time
    std::deque<LocalCapabilities> capabilities;  ///< of GetLocalSystemCapabilities
    std::deque<std::function<void()>> sleeps;    ///< what happens during each usleep
    std::map<clockid_t, timespec> clocks;        ///< readings in place of the system's
    std::function<void(PlatformCall)> onCall;    ///< looks on before each answer
    bool isNameless = false;                     ///< the service gives no interface name
    std::array<unsigned char, 8> clockIdentity{0x00, 0x1B, 0x21, 0xFF, 0xFE, 0xAA, 0xBB, 0xCC};
    bool answersEverything = false;                ///< gives zero instead of failing the test
    std::vector<std::vector<unsigned char>> sent;  ///< payloads of transmit
    unsigned int lastSleep = 0;                    ///< microseconds

    /** True when every prepared answer has been asked for. */
    bool isUsedUp() const;
};

/** The one of this process. */
FakePlatform& platform();

/** What the fake interface is called. */
inline constexpr char kInterface[] = "eth1";
