#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "include/gPtpTimeData.h"
#include "tools/tsyn/check/FollowUpTlvs.h"

namespace tsyn::doctor {

using MacAddress = std::array<unsigned char, 6>;

/** What a daemon may be told; nothing where it is not known. */
struct Settings {
    std::optional<bool> master;
    std::optional<unsigned int> domain;
    std::optional<int> vlanId;
    std::optional<bool> anyMinorVersion;
    std::optional<double> syncIntervalMs;
    std::optional<DataIdList> dataIds;
    std::optional<int> fixedDelayNs; /**< 0: measured */
    std::optional<bool> sendsSync;
    std::optional<bool> needsGlobalTime;        /**< a master sends only with a global time base */
    std::optional<unsigned int> timeBaseStatus; /**< at its start */
};

/** What the daemon is judged by. */
struct Expectation {
    std::string interfaceName;
    bool master = false;
    unsigned int domain = 0;
    int vlanId = -1;
    bool anyMinorVersion = true; /**< false: of a Sync, only versionPTP 0x02 is taken */
    double syncIntervalMs = 125.0;
    std::optional<DataIdList> dataIds;
    double listenS = 3.0;
};

struct CapabilityFacts {
    bool netRaw = false;
    bool netAdmin = false;
    bool sysTime = false;
};

struct InterfaceFacts {
    unsigned int index = 0; /**< 0: no such interface */
    bool isUp = false;
    bool hasCarrier = false;
    std::optional<unsigned int> speedMbit;
    MacAddress address{};
    bool takesEverything = false; /**< promiscuous, or all multicast */
    bool takesGptp = false;       /**< 01:80:C2:00:00:0E is in its filter */
};

/** Each problem in the words of `tsyn run`: what is wrong; what to do. Empty: nothing is. */
struct ClockFacts {
    int index = -1; /**< of /dev/ptpN */
    std::string problem;
    std::string stampingProblem; /**< the card cannot stamp what the daemon needs */
    std::string accessProblem;
};

/** What the card is set to. */
struct StampingFacts {
    int error = 0; /**< errno of the question; not 0: the driver does not tell */
    bool sends = false;
    int receiveFilter = 0; /**< enum hwtstamp_rx_filters */
};

/** A process that has to do with the interface, its clock or its record. */
struct Process {
    int pid = 0;
    int parent = 0;
    std::string name;
    std::string command;
    bool steersByName = false;  /**< a program that is known to steer clocks */
    bool namesOurs = false;     /**< its command names the interface or the clock */
    bool isStopped = false;     /**< by a signal or a debugger */
    bool isVisible = false;     /**< its descriptors could be looked at */
    bool mayWriteClock = false; /**< has the clock open for writing */
    bool writesRecord = false;  /**< has the published record mapped for writing */
};

/** One frame of EtherType 0x88F7. */
struct Heard {
    double atS = 0.0; /**< since the listening began */
    bool isOwn = false;
    MacAddress source{};
    int vlanId = -1;                        /**< -1: untagged */
    std::optional<unsigned long long> rxNs; /**< the card's receive time */
    std::vector<unsigned char> message;
};

struct WireFacts {
    std::string problem; /**< why nothing could be heard */
    double listenedS = 0.0;
    std::vector<Heard> frames;
    unsigned long unkept = 0; /**< frames beyond those kept */
};

struct RecordFacts {
    bool exists = false;
    std::string problem;                      /**< why it cannot be read */
    std::optional<gPtpTimeDataStruct> before; /**< when the listening began */
    std::optional<gPtpTimeDataStruct> after;  /**< when it ended */
    long long afterNs = 0;                    /**< system time then */
    double apartS = 0.0;                      /**< from before to after */
    int ownerPid = 0;                         /**< as the record or the lock tells; 0: untold */
    bool ownerLives = false;                  /**< or nobody may look whether it does */
    bool ownerIsHidden = false;
};

/** All that was seen, before anything is judged. */
struct Evidence {
    Settings asked; /**< by who looks */
    Settings used;  /**< by the daemon */
    Expectation expected;
    CapabilityFacts capabilities;
    InterfaceFacts interface;
    ClockFacts clock;
    StampingFacts stamping;
    std::vector<Process> processes;
    WireFacts wire;
    RecordFacts record;
};

}  // namespace tsyn::doctor
