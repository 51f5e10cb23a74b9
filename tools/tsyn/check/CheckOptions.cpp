#include "tools/tsyn/check/CheckOptions.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "tools/tsyn/HexText.h"

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
                    "DataIDList of the sender, 16 bytes in hexadecimal (all 0)")
        ->check([](const std::string& text) {
            return hexProblem(text, DataIdList().size(), DataIdList().size());
        });
    command.add_flag("--json", options.json, "one JSON object instead of lines of text");
}

}  // namespace tsyn
