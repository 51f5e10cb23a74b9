#pragma once

#include "autosar/TLVObject.h"
#include "include/ZebEthTimeSynSupportInterface.h"

/** The data ID that closes the CRCs of a Follow_Up, chosen by its sequenceId. */
unsigned char dataIdOf(const TSynInstanceConfig& cfg, const unsigned char* followUp);

/** CRC_Time_0 and CRC_Time_1 over the header fields that the flags select and the data ID. */
unsigned char timeCrc0(const TSynInstanceConfig& cfg, unsigned char flags,
                       const unsigned char* followUp);
unsigned char timeCrc1(const TSynInstanceConfig& cfg, unsigned char flags,
                       const unsigned char* followUp);

/** CRC over the given bytes, each a piece of its own, and the data ID. */
unsigned char bytewiseCrc(const TSynInstanceConfig& cfg, const unsigned char* data,
                          unsigned int length, unsigned char dataId);
