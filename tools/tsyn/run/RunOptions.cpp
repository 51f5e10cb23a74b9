#include "tools/tsyn/run/RunOptions.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <limits>
#include <map>
#include <memory>

#include "tools/tsyn/HexText.h"
#include "tools/tsyn/StandardOutput.h"
#include "tools/tsyn/TimeBaseNames.h"
#include "tools/tsyn/cli/ConfigFile.h"
#include "tools/tsyn/cli/OptionTypes.h"
#include "tools/tsyn/run/ProfileSwitches.h"
#include "tools/tsyn/run/RunCommand.h"
#include "tools/tsyn/run/RunContradictions.h"

namespace tsyn {
namespace {

constexpr std::size_t kDataIdCount = sizeof(TSynInstanceConfig::DataIDList);
constexpr std::size_t kMostUserBytes = sizeof(TSynUserData::bytes);

/** Puts the options that are declared under a heading of the help and a table of the file. */
void addGroup(CLI::App& command, RunOptions& options, const char* group,
              void (*add)(CLI::App& command, RunOptions& options)) {
    const auto all = [](const CLI::Option*) { return true; };
    const std::size_t before = command.get_options(all).size();
    add(command, options);
    const std::vector<CLI::Option*> declared = command.get_options(all);
    for (std::size_t i = before; i < declared.size(); ++i) {
        declared[i]->group(group);
    }
}

void addRoleOptions(CLI::App& command, RunOptions& options) {
    command.add_option("interface", options.interfaceName, "network interface such as eth1");
    command.add_option("--role", options.role, "what to be; must be told")
        ->check(oneOfWords({"master", "slave"}));
    command
        .add_option("--config", options.configFile,
                    "TOML file with values for all options that the command line leaves open")
        ->type_name("FILE");
    command.add_flag("--print-config", options.printConfig,
                     "print such a file with what was told and all defaults, and end");
}

void addProtocolOptions(CLI::App& command, RunOptions& options) {
    command.add_option("--domain", options.domain, "PTP domain, 0 to 15")
        ->check(wholeNumber(0, 15))
        ->capture_default_str();
    command.add_option("--vlan-id", options.vlanId, "VLAN id, 0 to 4096; -1: untagged")
        ->check(wholeNumber(-1, 4096))
        ->capture_default_str();
    command.add_option("--vlan-prio", options.vlanPriority, "VLAN priority, 0 to 7")
        ->check(wholeNumber(0, 7))
        ->capture_default_str();
    command
        .add_option("--propagation-delay", options.propagationDelayNs,
                    "fixed link delay of a slave in ns; 0: measured by peer delay")
        ->type_name("NS")
        ->check(wholeNumber(0, std::numeric_limits<int>::max()))
        ->capture_default_str();
    command.add_option("--sync-interval", options.syncIntervalMs, "Sync period in ms, from 125")
        ->type_name("MS")
        ->check(realNumber(125.0, 3600000.0))
        ->capture_default_str();
    command.add_option("--tx-mode", options.txMode, "1: a master sends Sync, 0: it does not")
        ->check(wholeNumber(0, 1))
        ->capture_default_str();
    command
        .add_option("--stack", options.stackIdentifier,
                    "Ethernet stack identifier, the value of SOCK while sockets are opened")
        ->check(shorterThan(sizeof(TSynInstanceConfig::ethStackIdent)));
}

std::string switchProblem(const std::string& text) {
    TSynProfile profile{};
    return setSwitch(profile, text);
}

void addProfileOptions(CLI::App& command, RunOptions& options) {
    const std::map<std::string, unsigned int> presets = {{"deployed", TSYN_PRESET_DEPLOYED},
                                                         {"standard", TSYN_PRESET_STANDARD}};
    command.add_option("--profile", options.preset, "deployed or standard (standard)")
        ->transform(oneOf(presets));
    command
        .add_option("--switch", options.switches,
                    "NAME=VALUE: one switch of the profile set by itself; may be repeated")
        ->allow_extra_args(false)
        ->check(CLI::Validator(switchProblem, ""));
}

void addSubTlvOptions(CLI::App& command, RunOptions& options) {
    const std::map<std::string, unsigned int> timeForms = {{"off", 0}, {"secured", 1}};
    const std::map<std::string, unsigned int> forms = {
        {"off", 0}, {"secured", 1}, {"not-secured", 2}};
    command.add_option("--time-tlv", options.timeSelector, "time sub-TLV")
        ->transform(oneOf(timeForms))
        ->default_str("off");
    command.add_option("--status-tlv", options.statusSelector, "status sub-TLV")
        ->transform(oneOf(forms))
        ->default_str("off");
    command.add_option("--user-data-tlv", options.userDataSelector, "user-data sub-TLV")
        ->transform(oneOf(forms))
        ->default_str("off");
    command
        .add_option("--crc-time-flags", options.crcTimeFlags,
                    "fields that the time CRCs cover, 0 to 0xFF; 0x3F: all")
        ->check(wholeNumber(0, 255))
        ->capture_default_str();
}

void addAutosarOptions(CLI::App& command, RunOptions& options) {
    command.add_flag("--autosar", options.autosarExtensions,
                     "attach AUTOSAR sub-TLVs to Follow_Up; a master then needs a time base");
    command
        .add_option("--data-id-list", options.dataIdList,
                    "DataIDList, 16 bytes in hexadecimal; all 0 unless told")
        ->type_name("HEX")
        ->check(hexDigits(kDataIdCount, kDataIdCount));
    command.add_option("--tx-crc-mode", options.txCrcMode, "1: compute CRCs, 0: substitutes")
        ->check(wholeNumber(0, 1))
        ->capture_default_str();
    addSubTlvOptions(command, options);
    command
        .add_option("--status", options.timeBaseStatus,
                    "time base of a master; with --autosar it sends Sync only with a global one")
        ->transform(oneOf(timeBaseNames()))
        ->default_str("global");
    command
        .add_option("--user-data", options.userData,
                    "user bytes that a master sends, 1 to 3 in hexadecimal")
        ->type_name("HEX")
        ->check(hexDigits(1, kMostUserBytes));
}

void addOutputOptions(CLI::App& command, RunOptions& options) {
    command.add_option("--duration", options.durationS, "end after this many seconds")
        ->type_name("SECONDS")
        ->check(realNumber(0.1, 1e9));
    command.add_flag("--end-when-gone", options.endWhenGone,
                     "end with status 1 when the interface is deleted, rather than wait for it; "
                     "with the deployed profile always so");
    command.add_flag("--json", options.json, "one JSON object a second instead of a status line");
    command
        .add_option("--log", options.logTarget,
                    "file that the library's log is appended to; -: standard error")
        ->type_name("FILE")
        ->check(shorterThan(4096))
        ->capture_default_str();
    command
        .add_option("--log-level", options.logThreshold,
                    "least weight of the lines that are logged; the profile's own unless told")
        ->transform(oneOf({{"all", 0}, {"info", 3}, {"debug", 4}, {"warning", 7}, {"error", 8}}));
    command
        .add_option("--trace-level", options.traceLevel,
                    "DbgTraceLevel of the library, 0 to 2; it would abort above 2")
        ->check(wholeNumber(0, 2))
        ->capture_default_str();
    command
        .add_option("--control", options.controlPath,
                    "socket on which a master takes requests of 'tsyn set'; auto: "
                    "/run/tsyn/INTERFACE.sock, or the same in XDG_RUNTIME_DIR")
        ->type_name("PATH");
    command.add_flag("--spy", options.spy,
                     "answer UDP port 319 with the published record; the first datagram clears "
                     "the record once");
}

void addComparisonOptions(CLI::App& command, RunOptions& options) {
    command
        .add_option("--truth", options.truthCard,
                    "compare with the true PHC time of this virtual i210; with --samples")
        ->type_name("CARD");
    command
        .add_option("--samples", options.samplesFile,
                    "CSV file for the comparison, one line a sample; with --truth")
        ->type_name("FILE");
    command
        .add_option("--sample-rate", options.sampleRateHz, "comparisons per second; with --truth")
        ->type_name("HZ")
        ->check(realNumber(0.1, 1000.0))
        ->capture_default_str();
}

}  // namespace

void addRunOptions(CLI::App& command, RunOptions& options) {
    addRoleOptions(command, options);
    addGroup(command, options, "Protocol", addProtocolOptions);
    addGroup(command, options, "Profile", addProfileOptions);
    addGroup(command, options, "AUTOSAR", addAutosarOptions);
    addGroup(command, options, "Output", addOutputOptions);
    addGroup(command, options, "Comparison", addComparisonOptions);
    command.get_option("--profile")->default_str("standard");
    command.final_callback([&command, &options] {
        if (!options.configFile.empty()) {
            readConfigFile(command, options.configFile);
        }
        if (!options.printConfig) {
            refuseContradictions(command, options);
        }
    });
}

Command addRunCommand(CLI::App& program) {
    CLI::App* const parser = program.add_subcommand(
        "run",
        "Run a master or a slave; one status line a second on standard output, the library's "
        "log on standard error");
    const auto options = std::make_shared<RunOptions>();
    addRunOptions(*parser, *options);
    return {parser, [options, parser] {
                if (options->printConfig) {
                    std::printf("%s", configText(*parser).c_str());
                    return outputStatus(0);
                }
                for (const std::string& warning : warningsOf(*parser, *options)) {
                    std::fprintf(stderr, "tsyn: warning: %s\n", warning.c_str());
                }
                return runCommand(*options);
            }};
}

TSynInstanceConfig makeConfig(const RunOptions& options) {
    TSynInstanceConfig config{};
    config.recordSize = sizeof config;
    options.stackIdentifier.copy(config.ethStackIdent, sizeof config.ethStackIdent - 1);
    options.interfaceName.copy(config.interfaceName, sizeof config.interfaceName - 1);
    config.Domain = static_cast<unsigned char>(options.domain);
    config.role = options.isMaster() ? 1 : 0;
    config.EnableAutosarExtensions = options.autosarExtensions ? 1 : 0;
    config.VlanID = options.vlanId;
    config.VlanPrio = options.vlanPriority;
    config.PropagationDelay = options.propagationDelayNs;
    config.syncInterval = options.syncIntervalMs;
    const std::vector<unsigned char> dataIds = hexBytes(options.dataIdList);
    std::copy_n(dataIds.begin(), std::min(dataIds.size(), kDataIdCount), config.DataIDList);
    config.TxMode = options.txMode;
    config.TxCrcMode = options.txCrcMode;
    config.timeSubTlv = options.timeSelector;
    config.statusSubTlv = options.statusSelector;
    config.userDataSubTlv = options.userDataSelector;
    config.CrcTimeFlags = static_cast<unsigned char>(options.crcTimeFlags);
    return config;
}

TSynProfile makeProfile(const RunOptions& options) {
    TSynProfile profile{};
    ZebEthTSynInterface_GetProfilePreset(options.preset, &profile);
    profile.oneDaemon = 1;  // deployed hosts would not notice the second one
    for (const std::string& text : options.switches) {
        setSwitch(profile, text);
    }
    if (options.logThreshold) {
        profile.logThreshold = static_cast<unsigned char>(*options.logThreshold);
    }
    return profile;
}

std::array<unsigned char, 4> makeUserData(const RunOptions& options) {
    std::array<unsigned char, 4> data{};
    const std::vector<unsigned char> bytes = hexBytes(options.userData);
    const std::size_t count = std::min(bytes.size(), kMostUserBytes);
    data[0] = static_cast<unsigned char>(count);
    std::copy_n(bytes.begin(), count, data.begin() + 1);
    return data;
}

}  // namespace tsyn
