#pragma once

#include <linux/if_packet.h>
#include <sys/socket.h>

#include "base/ptptime.h"
#include "platform/i210helper.h"

/** What the daemon does with the card, each step a whole. Those of deployed nodes, unless a profile
 *  puts others in place before the first thread starts. */
struct CardSteps {
    /** Finishes and sends a frame: its header of headerSize bytes, then the message. Returns the
     *  bytes sent or -1. */
    int (*sendFrame)(const UInterface& port, unsigned char* frame, int length, int headerSize);

    /** Transmit time of the frame that this thread sent last, PHC ns; 0 when none came. */
    unsigned long long (*transmitTimestamp)(int socket);

    /** Waits for one frame; buffer holds capacity + ethernet::kVlanTagSize bytes. Returns its
     *  length, 0 for nothing, and its receive time, PHC ns, 0 when it has none. */
    int (*receiveFrame)(int socket, unsigned char* buffer, int capacity, unsigned long long* rxNs);

    /** System and PHC time of one instant, ns; both 0 when the clock device cannot be read. */
    ptp_ext_time_t (*crossTimestamp)(int phcDevice);
};

extern CardSteps cardSteps;

/** The card's time among the control messages of a received header; 0 when there is none. */
unsigned long long hardwareTimeOf(msghdr& header);

/** Where all own frames go. */
sockaddr_ll gptpAddressOn(int interfaceIndex);

/* The steps of deployed nodes. */

/** Reads the PHC before it sends; a full queue (ENOMSG) is tried three times. */
int sendFrameAfterPhcRead(const UInterface& port, unsigned char* frame, int length, int headerSize);

/** Waits up to 5 ms. */
int receiveFrameShortly(int socket, unsigned char* buffer, int capacity, unsigned long long* rxNs);

/** Takes what is queued and does not wait. Tells by queueState what it found. */
int receiveQueuedFrame(int socket, unsigned char* buffer, int capacity, unsigned long long* rxNs);

enum class QueueState { kFrame, kEmpty, kFailed };

/** What the latest receiveQueuedFrame found; for the one thread that calls it. */
QueueState queueState();

/** The narrowest of 25 brackets. */
ptp_ext_time_t narrowestOf25(int phcDevice);
