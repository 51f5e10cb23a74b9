#pragma once

#include <initializer_list>
#include <string>
#include <utility>

#include "include/ZebEthTimeSynProfile.h"
#include "include/gPtpTimeQuality.h"
#include "tests/support/Daemon.h"

using Switches = std::initializer_list<std::pair<const char*, int>>;

inline constexpr long long kSecondNs = 1000000000;

// Clock identities are eight times one byte.
inline constexpr unsigned char kOwn = 0x11;
inline constexpr unsigned char kPeer = 0xAA;

/** The deployed profile with these switches. */
TSynProfile deployedWith(Switches switches);

/** Makes a record that of the running instance, without a thread. */
void configure(const TSynInstanceConfig& config);

void setProfile(const TSynProfile& profile);

/** What the daemon would tell its readers now. */
gPtpTimeQuality qualityNow();

/** A message of the common header and zeros: type, length, clock identity of eight times this
 *  byte, port 1 and number. */
Bytes messageOf(unsigned char type, std::size_t length, unsigned char clock,
                unsigned int sequenceId = 1);

/** A Pdelay_Resp (3) or Pdelay_Resp_Follow_Up (10) to a port of such a clock. */
Bytes answerTo(unsigned char requester, unsigned char type, unsigned char responder,
               unsigned int sequenceId);

/** Whether the message would be handled; it came whole and with a stamp. */
bool isAdmitted(Bytes message);

/** Lets simulated time pass. */
void pass(std::chrono::milliseconds time);
