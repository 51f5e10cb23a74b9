#pragma once

#include "profile/PortIdentity.h"

/* Whose answers to our delay requests are taken, and how many requests of others are answered. A
 * plain bridge carries a request to every port, and each answers. */
namespace answers {

/** A request of ours is about to be sent. Sending thread. */
void noteRequest(const unsigned char* request);

/** Whether a whole Pdelay_Resp or Pdelay_Resp_Follow_Up answers our latest request, is the first of
 *  its kind and comes from the port that answered first; true for other messages. Input thread. */
bool admits(const unsigned char* message);

/** Whether several ports answered the request of this number, now or lately. Any thread. */
bool exchangeIsDisputed(unsigned int sequenceId);

/** Whether a Pdelay_Req is within what one peer may ask in a second, and all beside the few that
 *  asked first within what all of them may; true for other messages. Input thread. */
bool isWithinRate(const unsigned char* message, unsigned int answersPerSecond);

/** True for the port that our requests leave. Any thread. */
bool isOwn(const PortKey& key);

}  // namespace answers
