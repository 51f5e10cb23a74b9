#pragma once

#include "platform/i210helper.h"

/* Transmit times that belong to the frame they are taken for. Event messages leave by a socket of
 * the sending thread's own, whose stamps nobody else can take; a stamp counts only when the frame
 * that comes back with it is the one that was sent. */
namespace stamps {

/** As CardSteps::sendFrame. The shared socket asks for no transmit times from the first call on, so
 *  that they do not wake the thread that receives. */
int sendFrame(const UInterface& port, unsigned char* frame, int length, int headerSize);

/** As CardSteps::transmitTimestamp, of the frame that sendFrame sent for this thread last. Waits up
 *  to 10 ms; 0 at once for a message that needs no time. */
unsigned long long transmitTimestamp(int socket);

/** True when a frame that came back is one that ends with these bytes. */
bool isSameFrame(const unsigned char* looped, int loopedLength, const unsigned char* message,
                 int messageLength);

}  // namespace stamps
