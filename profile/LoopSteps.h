#pragma once

/* What the event loop does beside sending and receiving, each step a whole. */

inline constexpr unsigned long long kNoDeadline = ~0ULL;

struct LoopSteps {
    /** Tells readers that a daemon is here, which has heard no master yet. A slave's, before its
     *  first frame. */
    void (*begin)(const char* interfaceName);

    /** Lets readers of the record see what changes while no Sync comes. Once the master is silent,
     *  then every second, and when the link comes or goes. */
    void (*tick)();

    /** How many Sync pairs were used so far, asked behind each Follow_Up. A pair without a receive
     *  stamp is none: the master may speak and the time go on unfed all the same. */
    unsigned int (*usedPairs)();

    /** Tells readers that nobody follows the master any more. */
    void (*end)();

    /** Takes what lies in the error queue of the socket while no transmission waits for it. Returns
     *  whether anything lay there. */
    bool (*takeStrayStamps)(int socket);
};

extern LoopSteps loopSteps;

/** Deployed records change with a Sync only, and with every one. */
void tellNothing();
void beginUntold(const char* interfaceName);
unsigned int countEveryPair();

/** Counts and drops them: left behind, they would wake the loop for ever. */
bool dropStrayStamps(int socket);
