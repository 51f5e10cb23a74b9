#include "tools/tsyn/run/RunOptions.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <memory>

#include "tools/tsyn/HexText.h"
#include "tools/tsyn/run/ProfileSwitches.h"
#include "tools/tsyn/run/RunCommand.h"

namespace tsyn {
namespace {

constexpr std::size_t kDataIdCount = sizeof(TSynInstanceConfig::DataIDList);
constexpr std::size_t kMostUserBytes = sizeof(TSynUserData::bytes);

/** A range check that also refuses "nan", which passes every comparison. */
CLI::Validator finiteRange(double least, double most) {
    const auto check = [least, most](std::string& text) -> std::string {
        double value = 0.0;
        if (CLI::detail::lexical_cast(text, value) && value >= least && value <= most) {
            return {};
        }
        std::ostringstream message;
        message << "value " << text << " not in range " << least << " to " << most;
        return message.str();
    };
    return CLI::Validator(check, "");
}

CLI::Validator shorterThan(std::size_t size) {
    const auto check = [size](std::string& text) -> std::string {
        if (!text.empty() && text.size() < size) {
            return {};
        }
        return "needs 1 to " + std::to_string(size - 1) + " characters";
    };
    return CLI::Validator(check, "");
}

CLI::Validator hexDigits(std::size_t leastBytes, std::size_t mostBytes) {
    const auto check = [leastBytes, mostBytes](const std::string& text) {
        return hexProblem(text, leastBytes, mostBytes);
    };
    return CLI::Validator(check, "");
}

/** Takes a name for a number of the configuration record. */
CLI::CheckedTransformer oneOf(const std::map<std::string, unsigned int>& names) {
    CLI::CheckedTransformer transformer(names);
    transformer.description("");
    return transformer;
}

void addProtocolOptions(CLI::App& command, RunOptions& options) {
    command.add_option("--domain", options.domain, "PTP domain, 0..15 (0)")
        ->check(CLI::Range(0, 15));
    command.add_option("--vlan-id", options.vlanId, "VLAN id, 0..4096; -1: untagged (-1)")
        ->check(CLI::Range(-1, 4096));
    command.add_option("--vlan-prio", options.vlanPriority, "VLAN priority, 0..7 (0)")
        ->check(CLI::Range(0, 7));
    command
        .add_option("--propagation-delay", options.propagationDelayNs,
                    "fixed link delay in ns; 0: measured by peer delay (0)")
        ->check(CLI::Range(0, std::numeric_limits<int>::max()));
    command
        .add_option("--sync-interval", options.syncIntervalMs, "Sync period in ms, from 125 (125)")
        ->check(finiteRange(125.0, 3600000.0));
    command.add_option("--tx-mode", options.txMode, "1: a master sends Sync, 0: it does not (1)")
        ->check(CLI::Range(0, 1));
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
    command.add_option("--time-tlv", options.timeSelector, "time sub-TLV: off or secured (off)")
        ->transform(oneOf(timeForms));
    command
        .add_option("--status-tlv", options.statusSelector,
                    "status sub-TLV: off, secured or not-secured (off)")
        ->transform(oneOf(forms));
    command
        .add_option("--user-data-tlv", options.userDataSelector,
                    "user-data sub-TLV: off, secured or not-secured (off)")
        ->transform(oneOf(forms));
    command
        .add_option("--crc-time-flags", options.crcTimeFlags,
                    "fields that the time CRCs cover, 0..0xFF; 0x3F: all (0)")
        ->check(CLI::Range(0, 255));
}

void addAutosarOptions(CLI::App& command, RunOptions& options) {
    command.add_flag("--autosar", options.autosarExtensions,
                     "attach AUTOSAR sub-TLVs to Follow_Up; a master then needs a time base");
    command
        .add_option("--data-id-list", options.dataIdList,
                    "DataIDList, 16 bytes in hexadecimal (all 0)")
        ->check(hexDigits(kDataIdCount, kDataIdCount));
    command.add_option("--tx-crc-mode", options.txCrcMode, "1: compute CRCs, 0: substitutes (1)")
        ->check(CLI::Range(0, 1));
    addSubTlvOptions(command, options);
    const std::map<std::string, unsigned int> statuses = {
        {"none", 0}, {"gateway", 4}, {"global", 8}, {"global+gateway", 12}};
    auto* status = command
                       .add_option("--status", options.timeBaseStatus,
                                   "time base of a master: none, gateway, global or "
                                   "global+gateway; with --autosar it sends Sync only with a "
                                   "global one (global)")
                       ->transform(oneOf(statuses));
    auto* userData = command
                         .add_option("--user-data", options.userData,
                                     "user bytes that a master sends, 1 to 3 in hexadecimal")
                         ->check(hexDigits(1, kMostUserBytes));
    command.final_callback([&options, status, userData] {
        for (const CLI::Option* option : {status, userData}) {
            if (!options.isMaster() && option->count() != 0) {
                throw CLI::ValidationError(option->get_name(), "needs --role master");
            }
        }
    });
}

void addOutputOptions(CLI::App& command, RunOptions& options) {
    command.add_option("--duration", options.durationS, "end after this many seconds")
        ->check(finiteRange(0.1, 1e9));
    command
        .add_option("--trace-level", options.traceLevel,
                    "DbgTraceLevel of the library, 0..2; it aborts above 2 (0)")
        ->check(CLI::Range(0, 2));
    command.add_flag("--json", options.json, "one JSON object a second instead of a status line");
    command
        .add_option("--log", options.logTarget,
                    "file that the library's log is appended to; -: standard error (-)")
        ->check(shorterThan(4096));
    command.add_flag("--spy", options.spy,
                     "answer UDP port 319 with the published record; the first datagram clears "
                     "the record once");
    auto* truth = command.add_option("--truth", options.truthCard,
                                     "compare with the true PHC time of this virtual i210");
    auto* samples = command
                        .add_option("--samples", options.samplesFile,
                                    "CSV file for the comparison, one line a sample")
                        ->needs(truth);
    truth->needs(samples);
    command.add_option("--sample-rate", options.sampleRateHz, "comparisons per second (100)")
        ->check(finiteRange(0.1, 1000.0))
        ->needs(truth);
}

}  // namespace

void addRunOptions(CLI::App& command, RunOptions& options) {
    command.add_option("interface", options.interfaceName, "network interface such as eth1")
        ->required();
    command.add_option("--role", options.role, "master or slave")
        ->required()
        ->check(CLI::IsMember({"master", "slave"}));
    addProtocolOptions(command, options);
    addProfileOptions(command, options);
    addAutosarOptions(command, options);
    addOutputOptions(command, options);
}

Command addRunCommand(CLI::App& program) {
    CLI::App* const parser = program.add_subcommand(
        "run",
        "Run a master or a slave; one status line a second on standard output, the library's "
        "log on standard error");
    const auto options = std::make_shared<RunOptions>();
    addRunOptions(*parser, *options);
    return {parser, [options] { return runCommand(*options); }};
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
    for (const std::string& text : options.switches) {
        setSwitch(profile, text);
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
