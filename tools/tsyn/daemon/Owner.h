#pragma once

#include <optional>
#include <string>

#include "tools/tsyn/daemon/DaemonState.h"
#include "tools/tsyn/daemon/RecordWriters.h"

namespace tsyn {

/** The process whose daemon writes a record. */
struct Owner {
    int pid = 0; /**< 0: not known */
    enum class Life { kUnknown, kLives, kEnded } life = Life::kUnknown;
    std::string command; /**< its name; empty when it is not known */
};

/** Finds the owner by the pid that a daemon told, or, of one that told none, as the process that
 *  has the segment mapped for writing. A process that cannot be asked is taken as alive, and one
 *  that has not mapped the file is another one under the same pid. Where processes hide what they
 *  map, one may be the owner as long as somebody listens to the interface. */
class OwnerFinder {
public:
    /** Cheap for an owner that lives: it is searched for only now and then. */
    const Owner& find(const Look& look, const std::string& segmentFile);

private:
    void check(int pid, const FileIdentity& file);

    Owner owner_;
    std::optional<unsigned long long> beginning_;
    std::optional<double> searchedS_;
};

/** A record that moves is written by somebody, be it in a container that hides its processes. */
bool hasEnded(const Owner& owner, const DaemonState& daemon);

/** "owner 1234 has ended" */
std::string whoEnded(const Owner& owner);

/** "owner 1234 has ended; what is shown is its last" */
std::string endedText(const Owner& owner);

}  // namespace tsyn
