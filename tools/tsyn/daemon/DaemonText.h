#pragma once

#include <string>
#include <vector>

#include "tools/tsyn/daemon/DaemonState.h"
#include "tools/tsyn/daemon/Owner.h"

namespace tsyn {

/** One fact for people: what it is and its value. */
struct TextRow {
    std::string label;
    std::string text;
};

/** "eth1: synchronised, slave, standard profile" */
std::string headline(const std::string& source, const DaemonState& daemon);

/** All that is known of a daemon at its latest look, but for its counters. */
std::vector<TextRow> daemonRows(const DaemonState& daemon, const Owner& owner, int utcOffsetS);

/** "accepted 12  rejected 0  ..." */
std::string countersText(const Look& look);

/** One line for a log. */
std::string daemonLine(const std::string& source, const DaemonState& daemon);

}  // namespace tsyn
