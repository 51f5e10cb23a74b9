#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "base/DbgLog.h"
#include "base/Undestroyed.h"
#include "include/ZebEthTimeSynSupportInterface.h"
#include "timebase/osipc.h"

namespace {

constexpr int kEntryTraceLine = 146;
constexpr int kReplyTraceLine = 183;
constexpr unsigned short kSpyPort = 319;
constexpr int kReplyPeriodMilliseconds = 525;
constexpr std::size_t kDatagramSize = 256;
// Spy tools know the record under this name; it does not follow the configured interface.
constexpr const char* kSpyRecordName = "wm0";

int openSpySocket() {
    const int spy = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    if (spy < 0) {
        reportFault("socket");
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(kSpyPort);
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    if (bind(spy, reinterpret_cast<sockaddr*>(&address), sizeof address) < 0) {
        reportFault("bind is buggy ");
    }
    return spy;
}

/** Receives one datagram, reports it and remembers its sender; a failure changes nothing. */
void receiveDatagram(int spy, sockaddr_in& peer) {
    char datagram[kDatagramSize + 1];
    sockaddr_in sender{};
    socklen_t senderLength = sizeof sender;
    const ssize_t received = recvfrom(spy, datagram, kDatagramSize, 0,
                                      reinterpret_cast<sockaddr*>(&sender), &senderLength);
    if (received < 0) {
        return;
    }
    peer = sender;
    if (received == 0) {
        return;
    }
    datagram[received] = '\0';
    char dotted[INET_ADDRSTRLEN] = "";
    inet_ntop(AF_INET, &sender.sin_addr, dotted, sizeof dotted);
    reportFault("Received packet from %s:%d\nData: %s\n\n", dotted, ntohs(sender.sin_port),
                datagram);
}

bool isReadableWithinPeriod(int spy) {
    pollfd descriptor{spy, POLLIN, 0};
    return poll(&descriptor, 1, kReplyPeriodMilliseconds) > 0 && (descriptor.revents & POLLIN) != 0;
}

void sendRecord(int spy, const gPtpTimeDataStruct& live, const sockaddr_in& peer) {
    const gPtpTimeDataStruct copy = live;
    if (sendto(spy, &copy, sizeof copy, 0, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) <
        0) {
        reportFault("sendto() is buggy ");
    } else if (abortsOnTrace()) {
        fatalTraceLine("RemotePTPSpyProvider", kReplyTraceLine);
    }
}

}  // namespace

ZEB_EXPORT void* RemotePTPSpyProvider(void* /*unused*/) {
    noteDaemonThread();
    if (abortsOnTrace()) {
        fatalTraceLine("RemotePTPSpyProvider", kEntryTraceLine);
    }
    const int spy = openSpySocket();
    sockaddr_in peer{};
    receiveDatagram(spy, peer);
    const gPtpTimeDataStruct* const record = OSipc::instance(kSpyRecordName);
    for (;;) {
        if (isReadableWithinPeriod(spy)) {
            receiveDatagram(spy, peer);
        }
        if (record != nullptr) {
            sendRecord(spy, *record, peer);
        }
    }
}

ZEB_PLAIN_NAME(void*, RemotePTPSpyProvider, (void* unused), "_Z20RemotePTPSpyProviderPv");
