#pragma once

#include "platform/NetworkService.h"

/* What own messages say of their sender, its clock and its intervals. Steps, each for one switch or
 * reading the profile for several. */
namespace own_messages {

unsigned short alwaysOne(unsigned int interfaceIndex);

/** An answer of the standard: nothing of the request is left but its number, and its correction
 *  in the second message. */
void finishStandardAnswer(unsigned char* answer, const unsigned char* request,
                          NetworkService<sock>* service);

void finishAsProfiled(unsigned char* message);

/** 0, as the field is reserved: reading the card's clock for it costs more than sending it. */
long long noRequestOrigin(const char* interfaceName);

unsigned int taiSeconds(unsigned int systemSeconds);

/** 1 for an odd size, else 0. */
unsigned int padToEven(unsigned int valueSize);

/** 1 + field * 2^-41 of a signed field. */
long double signedRateRatio(unsigned int cumulativeScaledRateOffset);

/** By which the next requests leave; 0: eight Syncs. Before the request, by its thread. */
void sayRequestPeriod(unsigned long long ns);

/* Steps that a master's time is about to make, which its Follow_Ups tell. Any thread. */
void noteHardTime(const char* interfaceName, unsigned long long ns);
void noteSoftTime(long long stepNs);

}  // namespace own_messages
