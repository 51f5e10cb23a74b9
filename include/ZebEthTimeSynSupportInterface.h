/** Control interface of libZebEthTimeSynDaemon.so: IEEE 802.1AS time master or slave for one
 *  Ethernet interface per process. Compiles as C99 and as C++.
 *
 *  Order of calls: set DbgTraceLevel to 2 or lower, Create, Start; then the setters and getters;
 *  Stop and Start pause and resume; Destroy ends the threads. The first call must come from one
 *  thread alone; afterwards any thread may call any function. What is said here is what deployed
 *  nodes do; ZebEthTimeSynProfile.h offers more, between Create and Start. The library writes its
 *  log to standard output. While sockets are opened it sets the environment variable SOCK to the
 *  stack identifier.
 *
 *  The library exports global variables with short names: a host must not define globals called
 *  cv, cv1, cv2, condvar, cvpd, cvout, cv_announce, pMutex, th_mutex, mutexInputThreader,
 *  mutexOutputThreader, slope_x, slope_y, slope_mN, slope_mZ, clockItems, i210TimeOffset,
 *  netifname, devname, shm_name, EthStackIdent, runningState, threadCount, bSuppressPDelay,
 *  override_portstate or MasterOrSlave. */
#pragma once

#include "ZebEthTimeSynTrace.h"

#ifdef __cplusplus
extern "C" {
#endif

#pragma pack(push, 4)
/** Configuration of the instance, 356 bytes, filled by the host and copied by Create. */
typedef struct TSynInstanceConfig {
    unsigned int recordSize;    /**< must be 356 */
    unsigned int argumentCount; /**< above 1: Start may replace the two strings below */
    char ethStackIdent[192];    /**< value of the environment variable SOCK while opening */
    char interfaceName[64];     /**< network interface such as "eth1" */
    unsigned char Domain;       /**< PTP domainNumber, 0..15 */
    unsigned char role;         /**< nonzero: master, 0: slave */
    unsigned char EnableAutosarExtensions; /**< nonzero: Follow_Up carries AUTOSAR sub-TLVs */
    unsigned char reserved267;
    int VlanID;            /**< 0..4096; negative: untagged */
    unsigned int VlanPrio; /**< 0..7 */
    int PropagationDelay;  /**< fixed link delay in ns; 0: measured by peer delay */
    double syncInterval;   /**< ms, at least 125.0 */
    unsigned char further288[8];
    unsigned char DataIDList[16]; /**< entry sequenceId % 16 closes every sub-TLV CRC */
    unsigned int TxMode;          /**< master: 1 sends Sync, 0 does not */
    unsigned int TxCrcMode;       /**< 1: compute CRCs, 0: substitute values */
    unsigned char further320[8];
    unsigned int timeSubTlv;     /**< time sub-TLV: 1 secured */
    unsigned int statusSubTlv;   /**< status sub-TLV: 1 secured, 2 not secured */
    unsigned int userDataSubTlv; /**< user-data sub-TLV: 1 secured, 2 not secured */
    unsigned char CrcTimeFlags; /**< fields that the time CRCs cover; a slave takes received ones */
    unsigned char further341[15];
} TSynInstanceConfig;

/** AUTOSAR sub-TLVs found in the last received Follow_Up, 24 bytes. */
typedef struct TSynSubTlvReport {
    unsigned int count;       /**< recorded entries; only four have a kind and a flag */
    unsigned int crcKinds[4]; /**< 0 and 1: time CRCs, 2: status, 3: user data */
    unsigned char valid[4];   /**< 1: the CRC matched */
} TSynSubTlvReport;

/** AUTOSAR user data, 4 bytes. */
typedef struct TSynUserData {
    unsigned char length; /**< 0..3 as a host sets it; as received otherwise */
    unsigned char bytes[3];
} TSynUserData;
#pragma pack(pop)

#ifdef __cplusplus
static_assert(sizeof(TSynInstanceConfig) == 356, "the configuration record is 356 bytes");
static_assert(sizeof(TSynSubTlvReport) == 24, "the sub-TLV report is 24 bytes");
static_assert(sizeof(TSynUserData) == 4, "the user data record is 4 bytes");
#endif

/** Stores a configuration. Returns 0, or -1 when a value is out of range (or cfg is null); a
 *  refused configuration is stored all the same and Start would run it. */
int ZebEthTSynInterface_Create(const TSynInstanceConfig* cfg);

/** Cancels the daemon's threads. Harmless before Start and when repeated. Returns 0. */
int ZebEthTSynInterface_Destroy(void);

/** Writes the number of earlier calls modulo 256 to every output that is not null: a changing
 *  value shows that the library is alive. The handle is not used. Returns 0. */
int ZebEthTSynInterface_getDaemonStatus(unsigned int handle, unsigned int* callCount1,
                                        unsigned int* callCount2, unsigned int* callCount3,
                                        unsigned char* callCountByte);

/** Starts the threads, or resumes them after Stop. The first call blocks for about 1.1 s and
 *  leaves SIGUSR1 blocked in the caller. The names replace the configured ones when
 *  argumentCount is above 1; longer ones are cut to 191 and 63 characters. Returns 0 even when
 *  the interface does not exist; -1 when a profile refuses a second daemon on it. */
int ZebEthTSynInterface_Start(unsigned int handle, const char* stackIdent, const char* ifName);

/** Pauses the threads and clears the user data length. Returns 0. */
int ZebEthTSynInterface_Stop(void);

/** Reads the synchronised time: seconds, and nanoseconds within the second.
 *
 *  sequenceId: that of the last Sync; pathDelay: link delay in ns; rejectedSyncs: count of rejected
 *  Sync messages; timeBaseStatus: AUTOSAR status byte. Every pointer may be null. Before Start and
 *  after Stop all numbers are all-ones, the user data are zero, the report is left alone.
 *  Returns the low 32 bits of the time in ns, which is no success indication. */
int ZebEthTSynInterface_GetCurrentTime(unsigned int handle, unsigned long long* seconds,
                                       unsigned int* nanoseconds, unsigned short* sequenceId,
                                       unsigned int* pathDelay, unsigned int* rejectedSyncs,
                                       unsigned int* timeBaseStatus, TSynSubTlvReport* subTlvs,
                                       TSynUserData* userData);

/** Reads a master's hardware clock. Returns 0, or -1 with both outputs 0 unless role is 1. */
int ZebEthTSynInterface_GetMasterTime(unsigned int handle, unsigned long long* seconds,
                                      unsigned int* nanoseconds);

/** Sets the hardware clock (low 32 bits of seconds). A nonzero notify first makes every sender
 *  transmit at once. Returns 0 whatever the clock reported. */
int ZebEthTSynInterface_SetHardTime(unsigned int handle, unsigned long long seconds,
                                    unsigned int nanoseconds, unsigned char notify);

/** Sets the distributed time as an offset to the hardware clock, which is not stepped.
 *  Returns 0, or -1 for more than 4,611,686,018 s, an unreadable clock or no shared record. */
int ZebEthTSynInterface_SetSoftTime(unsigned int handle, unsigned long long seconds,
                                    unsigned int nanoseconds, unsigned char notify);

/** SetUserData (when userData is not null) followed by SetSoftTime; the first -1 ends it. */
int ZebEthTSynInterface_SetTime(unsigned int handle, unsigned long long seconds,
                                unsigned int nanoseconds, unsigned char notify,
                                const unsigned char* userData);

/** Sets a master's global-time-base bit: status 1 sets 0x08, 0 clears it. -1 for other values. */
int ZebEthTSynInterface_SetStatus(unsigned int handle, unsigned char status);

/** Sets a master's time base status; only bits 0x04 and 0x08 are accepted, else -1. */
int ZebEthTSynInterface_SetTimeBaseStatus(unsigned int handle, unsigned char status);

/** Sets the user data of coming Follow_Ups: a length byte (0..3) and three bytes, those beyond the
 *  length stored as 0. Null changes nothing. Returns 0, or -1 for a longer length. */
int ZebEthTSynInterface_SetUserData(unsigned int handle, const unsigned char* data);

/** Sets TxMode (master only) and TxCrcMode, unchecked. Returns 0. */
int ZebEthTSynInterface_SetTxMode(unsigned int handle, unsigned int txMode, unsigned int txCrcMode);

#ifdef __cplusplus
}
#endif

/* Exported under their plain and their C++ names. */

/** Thread body of the daemon; Start runs it. */
void* MainEntryPointSharedLibrary(void* record);

/** Feeds one pair of readings (ns, t of the reference clock, u of the other) to the rate
 *  regression, whose slope a master publishes. Prints the line so far. One thread only. */
void PartialRegressionLine(unsigned long long t, unsigned long long u);

/** Thread body that answers UDP port 319 with the 236-byte shared record, at the first datagram and
 *  then about twice a second to the latest peer. The argument is not used; never returns. */
void* RemotePTPSpyProvider(void* unused);
