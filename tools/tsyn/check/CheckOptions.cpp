#include "tools/tsyn/check/CheckOptions.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <limits>
#include <memory>

#include "tools/tsyn/HexText.h"
#include "tools/tsyn/check/CheckCommand.h"
#include "tools/tsyn/cli/OptionTypes.h"

namespace tsyn {

DataIdList CheckOptions::dataIds() const {
    DataIdList list{};
    const std::vector<unsigned char> bytes = hexBytes(dataIdList);
    std::copy_n(bytes.begin(), std::min(bytes.size(), list.size()), list.begin());
    return list;
}

void addCheckOptions(CLI::App& command, CheckOptions& options) {
    command.add_option("file", options.file, "capture, pcap or pcapng, of an Ethernet interface")
        ->required();
    command
        .add_option("--data-id-list", options.dataIdList,
                    "DataIDList of the sender, 16 bytes in hexadecimal; all 0 unless told")
        ->type_name("HEX")
        ->check(hexDigits(DataIdList().size(), DataIdList().size()));
    command
        .add_option("--least-frames", options.leastFrames,
                    "PTP frames that the capture has to hold; fewer are a finding")
        ->check(wholeNumber(0, std::numeric_limits<int>::max()))
        ->capture_default_str();
    command.add_flag("--json", options.json, "one JSON object instead of lines of text");
}

Command addCheckCommand(CLI::App& program) {
    CLI::App* const parser = program.add_subcommand(
        "check",
        "Check the PTP messages of a capture: AUTOSAR CRCs, TLV lengths, sequence ids; status 0: "
        "all right, 1: findings, 2: unreadable or output not written");
    const auto options = std::make_shared<CheckOptions>();
    addCheckOptions(*parser, *options);
    return {parser, [options] { return checkCommand(*options); }};
}

}  // namespace tsyn
