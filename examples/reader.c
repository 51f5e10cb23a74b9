/* Prints between which grandmaster times each UDP packet came, by the kernel's receive timestamp.
 *     cc -std=c99 -Iinclude examples/reader.c -o reader
 *     ./reader eth1 5000 */
#define _DEFAULT_SOURCE /* for the names of the timestamp */
#include "gPtpTimeReader.h"

#include <arpa/inet.h>
#include <stdlib.h>
#include <sys/socket.h>

static int openSocket(unsigned short port) {
    const int on = 1;
    struct sockaddr_in address;
    const int packets = socket(AF_INET, SOCK_DGRAM, 0);
    memset(&address, 0, sizeof address);
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    if (packets < 0 || bind(packets, (struct sockaddr*)&address, sizeof address) != 0 ||
        setsockopt(packets, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on) != 0) {
        perror("reader");
        exit(1);
    }
    return packets;
}

/* CLOCK_REALTIME at which the kernel took the next packet. */
static long long nextPacket(int packets) {
    char data[2048];
    union {
        struct cmsghdr header;
        char bytes[CMSG_SPACE(sizeof(struct timespec))];
    } control;
    struct iovec part = {data, sizeof data};
    struct msghdr message;
    struct timespec stamp;
    memset(&message, 0, sizeof message);
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = &control;
    message.msg_controllen = sizeof control;
    if (recvmsg(packets, &message, 0) < 0) {
        perror("reader");
        exit(1);
    }
    const struct cmsghdr* const header = CMSG_FIRSTHDR(&message);
    if (header == NULL || header->cmsg_type != SCM_TIMESTAMPNS) {
        return gPtpSystemNow();
    }
    memcpy(&stamp, CMSG_DATA(header), sizeof stamp);
    return gPtpNanoseconds(&stamp);
}

int main(int argc, char** argv) {
    gPtpTimeReader reader;
    if (argc != 3) {
        fprintf(stderr, "usage: reader INTERFACE PORT\n");
        return 2;
    }
    const int packets = openSocket((unsigned short)atoi(argv[2]));
    /* Where no daemon runs yet, each reading looks again. */
    gPtpReaderOpen(&reader, argv[1]);
    reader.limits.maxWidthNs = 100000;
    for (;;) {
        gPtpTimeReading reading;
        const int result = gPtpReaderAt(&reader, nextPacket(packets), &reading);
        if (result == GPTP_READ_OK) {
            printf("between %lld and %lld\n", reading.earliestNs, reading.latestNs);
        } else {
            printf("unknown: %s: %s\n", argv[1], gPtpReadText(result));
        }
        fflush(stdout);
    }
}
