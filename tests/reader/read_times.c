/* Prints what a segment says of system times: read_times IF SYSTEM_NS... */
#include "gPtpTimeReader.h"

#include <stdlib.h>

static void print(int result, const gPtpTimeReading* reading) {
    printf("%d %lld %lld %lld %lld %u %u\n", result, reading->earliestNs, reading->latestNs,
           reading->timeNs, reading->systemNs, reading->state, reading->stepCount);
}

int main(int argc, char** argv) {
    gPtpTimeReader reader;
    gPtpTimeReading reading;
    if (argc < 2) {
        return 2;
    }
    gPtpReaderOpen(&reader, argv[1]);
    for (int i = 2; i < argc; ++i) {
        print(gPtpReaderAt(&reader, strtoll(argv[i], NULL, 10), &reading), &reading);
        if (reading.timeNs != LLONG_MIN) {
            const long long timeNs = reading.timeNs;
            print(gPtpReaderSystemAt(&reader, timeNs, &reading), &reading);
        }
    }
    gPtpReaderClose(&reader);
    return 0;
}
