#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "include/ZebEthTimeSynProfile.h"
#include "include/ZebEthTimeSynSupportInterface.h"
#include "tools/tsyn/Command.h"

namespace tsyn {

/** What `tsyn run` was asked to do; the defaults suit a bench with one master and one slave. */
struct RunOptions {
    std::string interfaceName;
    std::string role;
    std::string stackIdentifier;
    unsigned int domain = 0;
    int vlanId = -1;
    unsigned int vlanPriority = 0;
    int propagationDelayNs = 0;
    double syncIntervalMs = 125.0;
    std::string dataIdList;
    unsigned int txMode = 1;
    unsigned int txCrcMode = 1;
    bool autosarExtensions = false;
    unsigned int timeSelector = 0;
    unsigned int statusSelector = 0;
    unsigned int userDataSelector = 0;
    unsigned int crcTimeFlags = 0;
    unsigned int timeBaseStatus = 8; /**< of a master; 8: global time base */
    std::string userData;
    unsigned int preset = TSYN_PRESET_STANDARD;
    std::vector<std::string> switches; /**< NAME=VALUE, on top of the preset */

    std::string configFile;
    bool printConfig = false;

    double durationS = 0.0; /**< 0: until a signal */
    int traceLevel = 0;
    bool json = false;
    std::string logTarget = "-";
    std::optional<unsigned int> logThreshold; /**< nothing: that of the profile */
    bool endWhenGone = false;
    std::string controlPath; /**< empty: no requests are taken; "auto": the interface's own place */
    bool spy = false;

    std::string truthCard;
    std::string samplesFile;
    double sampleRateHz = 100.0;

    bool isMaster() const { return role == "master"; }
};

/** Declares the options of `tsyn run` on its subcommand; parsing fills the record. */
void addRunOptions(CLI::App& command, RunOptions& options);

Command addRunCommand(CLI::App& program);

/** The configuration record that the library takes. */
TSynInstanceConfig makeConfig(const RunOptions& options);

/** The preset with its changed switches. */
TSynProfile makeProfile(const RunOptions& options);

/** The user data as the library's setter takes them: length and three bytes. */
std::array<unsigned char, 4> makeUserData(const RunOptions& options);

}  // namespace tsyn
