#include "RunOptions.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstring>
#include <limits>

namespace tsyn {
namespace {

constexpr std::size_t kDataIdCount = sizeof(TSynInstanceConfig::DataIDList);

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

CLI::Validator dataIds() {
    const auto check = [](std::string& text) -> std::string {
        const bool hex = text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
        if (hex && text.size() == 2 * kDataIdCount) {
            return {};
        }
        return "needs " + std::to_string(2 * kDataIdCount) + " hexadecimal digits, two per entry";
    };
    return CLI::Validator(check, "");
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

void addAutosarOptions(CLI::App& command, RunOptions& options) {
    command.add_flag("--autosar", options.autosarExtensions,
                     "attach AUTOSAR sub-TLVs to Follow_Up; a master then waits for a time base");
    command.add_option("--data-ids", options.dataIdList, "DataIDList, 16 bytes in hexadecimal")
        ->check(dataIds());
    command.add_option("--tx-crc-mode", options.txCrcMode, "1: compute CRCs, 0: substitutes (1)")
        ->check(CLI::Range(0, 1));
    command.add_option("--time-tlv", options.timeSelector, "time sub-TLV: 0 none, 1 secured (0)")
        ->check(CLI::Range(0, 1));
    command
        .add_option("--status-tlv", options.statusSelector,
                    "status sub-TLV: 0 none, 1 secured, 2 not secured (0)")
        ->check(CLI::Range(0, 2));
    command
        .add_option("--user-data-tlv", options.userDataSelector,
                    "user-data sub-TLV: 0 none, 1 secured, 2 not secured (0)")
        ->check(CLI::Range(0, 2));
    command
        .add_option("--crc-time-flags", options.crcTimeFlags,
                    "fields that the time CRCs cover, 0..255 (0)")
        ->check(CLI::Range(0, 255));
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

unsigned char hexByte(const std::string& text, std::size_t index) {
    return static_cast<unsigned char>(std::stoul(text.substr(2 * index, 2), nullptr, 16));
}

}  // namespace

void addRunOptions(CLI::App& command, RunOptions& options) {
    command.add_option("interface", options.interfaceName, "network interface such as eth1")
        ->required();
    command.add_option("--role", options.role, "master or slave")
        ->required()
        ->check(CLI::IsMember({"master", "slave"}));
    addProtocolOptions(command, options);
    addAutosarOptions(command, options);
    addOutputOptions(command, options);
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
    for (std::size_t i = 0; i < kDataIdCount && !options.dataIdList.empty(); ++i) {
        config.DataIDList[i] = hexByte(options.dataIdList, i);
    }
    config.TxMode = options.txMode;
    config.TxCrcMode = options.txCrcMode;
    config.selector1 = options.timeSelector;
    config.selector2 = options.statusSelector;
    config.selector3 = options.userDataSelector;
    config.CrcTimeFlags = static_cast<unsigned char>(options.crcTimeFlags);
    return config;
}

}  // namespace tsyn
