#pragma once

#include "api/InterfaceDataManager.h"
#include "ptp/LinkDelay.h"
#include "ptp/Port.h"
#include "ptp/clockitems.h"

/** What the messages do beyond reading and writing their fields, each step a whole. Those of
 *  deployed nodes, unless a profile puts others in place before the first thread starts. */
struct ProtocolSteps {
    /** Whether a received message is handled at all; may correct it in place. length: of the
     *  buffer's bytes that were received; rxNs: PHC receive time, 0 without one. */
    bool (*admits)(unsigned char* message, unsigned int length, unsigned long long rxNs);

    /** What happens as soon as a Sync or a Follow_Up came, whatever is in it. */
    void (*noteArrival)(const char* interfaceName);

    /** Whether a Sync counts; rxNs: PHC receive time. The record holds the one before it. */
    bool (*takesSync)(const ClockItemMembersType& item, unsigned int sequenceId,
                      unsigned long long rxNs);

    /** Takes a Follow_Up whose Sync came before it; originNs: its preciseOriginTimestamp. */
    void (*useSyncPair)(Port& port, const unsigned char* followUp, unsigned long long originNs,
                        ClockItemMembersType& item);

    /** PHC time that a request carries, ns: no peer computes with it. */
    long long (*requestOrigin)(const char* interfaceName);

    /** Told of each Pdelay_Resp of the port whose record this is, before it is looked at. */
    void (*noteResponse)(const char* interfaceName, ClockItemMembersType& item);

    /** Takes the receive times of a response, t2 and t4, which the record holds already. */
    void (*checkResponse)(ClockItemMembersType& item);

    /** Takes a complete exchange; respFollowUp: its last message. */
    void (*usePdelayExchange)(Port& port, const unsigned char* respFollowUp,
                              const PdelayTimes& times, ClockItemMembersType& item);

    /** Whether a message that tells when an earlier one left may follow. */
    bool (*isSent)(const ptp_time_t& txTime);

    /** What a master publishes after each Sync. */
    void (*publishMasterTime)(Port& port);

    /** Told after each turn of the Sync sender; txMode: as configured. */
    void (*noteSyncTurn)(unsigned int txMode);

    /** The port number of own messages on the interface of an index. */
    unsigned short (*portNumber)(unsigned int interfaceIndex);

    /** Completes an answer to a request, before finish. */
    void (*finishAnswer)(unsigned char* answer, const unsigned char* request,
                         NetworkService<sock>* service);

    /** Completes a message that is about to be sent. CRCs of a Follow_Up are in it already. */
    void (*finish)(unsigned char* message);

    /** Rate ratio that a Follow_Up tells. */
    long double (*masterRateRatio)(unsigned int cumulativeScaledRateOffset);

    /** What a master sets the seconds of its PHC to when it starts. */
    unsigned int (*clockSeconds)(unsigned int systemSeconds);
};

extern ProtocolSteps protocolSteps;

/* The steps of deployed nodes. */

bool admitsEverything(unsigned char* message, unsigned int length, unsigned long long rxNs);
bool takesEverySync(const ClockItemMembersType& item, unsigned int sequenceId,
                    unsigned long long rxNs);
void useSuccessivePairs(Port& port, const unsigned char* followUp, unsigned long long originNs,
                        ClockItemMembersType& item);

long long requestReadsPhc(const char* interfaceName);

/** Leaves a cross-timestamp in the record, where hosts find it. */
void noteClocksAtResponse(const char* interfaceName, ClockItemMembersType& item);

/** Holds the handler for good while t4 lies before t1 and reports are on: such times mean a clock
 *  stepped within the exchange, and integrators want to be stopped there. Lowering the trace level
 *  to 0 ends it; then the exchange goes on with a round trip of 0. */
void reportImpossibleTimes(ClockItemMembersType& item);
void averageDelays(Port& port, const unsigned char* respFollowUp, const PdelayTimes& times,
                   ClockItemMembersType& item);

/** Whatever the time is: deployed masters send the second message without one, too. */
bool sentOrNot(const ptp_time_t& txTime);
void publishClockReadings(Port& port);

/** The low 16 bits, which may all be 0. */
unsigned short numberOfInterface(unsigned int interfaceIndex);
void leaveAnswer(unsigned char* answer, const unsigned char* request,
                 NetworkService<sock>* service);
void leaveMessage(unsigned char* message);
unsigned int sameSeconds(unsigned int systemSeconds);

/** Log readers count this line to see that a master is alive. */
void logTxMode(unsigned int txMode);
