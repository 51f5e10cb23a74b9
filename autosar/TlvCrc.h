#pragma once

#include "autosar/TLVObject.h"
#include "include/ZebEthTimeSynSupportInterface.h"

/** The data ID that closes the CRCs of a Follow_Up, chosen by its sequenceId. */
unsigned char dataIdOf(const TSynInstanceConfig& cfg, const unsigned char* followUp);

/** CRC_Time_0 and CRC_Time_1 over the header fields that the flags select. */
unsigned char timeCrc0(unsigned char flags, const unsigned char* followUp, unsigned char dataId);
unsigned char timeCrc1(unsigned char flags, const unsigned char* followUp, unsigned char dataId);

/** CRC over the given bytes, each a piece of its own, and the data ID. */
unsigned char bytewiseCrc(const unsigned char* data, unsigned int length, unsigned char dataId);
