#include "tools/tsyn/doctor/Told.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>

#include "tools/tsyn/HexText.h"
#include "tools/tsyn/doctor/TextFile.h"
#include "tools/tsyn/run/RunOptions.h"

namespace tsyn::doctor {
namespace {

bool runsTsyn(const std::vector<std::string>& words) {
    constexpr std::size_t kFewest = 2;
    return words.size() >= kFewest && words[0].substr(words[0].rfind('/') + 1) == "tsyn" &&
           words[1] == "run";
}

std::string placeOf(const std::string& file, const std::string& folder, const std::string& root) {
    return file.rfind('/', 0) == 0 ? root + file : folder + "/" + file;
}

/** The words behind "tsyn run", with the configuration file where this process finds it. */
std::vector<std::string> optionWords(const std::vector<std::string>& words,
                                     const std::string& folder, const std::string& root) {
    const std::string kConfig = "--config";
    std::vector<std::string> options(words.begin() + 2, words.end());
    for (std::size_t i = 0; i < options.size(); ++i) {
        if (options[i].rfind(kConfig + "=", 0) == 0) {
            options[i] =
                kConfig + "=" + placeOf(options[i].substr(kConfig.size() + 1), folder, root);
        } else if (i > 0 && options[i - 1] == kConfig) {
            options[i] = placeOf(options[i], folder, root);
        }
    }
    return options;
}

Settings settingsOf(const RunOptions& options) {
    Settings told;
    told.master = options.isMaster();
    told.domain = options.domain;
    told.vlanId = options.vlanId;
    told.anyMinorVersion = makeProfile(options).anyMinorVersion != 0;
    told.syncIntervalMs = options.syncIntervalMs;
    told.fixedDelayNs = options.propagationDelayNs;
    told.sendsSync = options.txMode != 0;
    told.needsGlobalTime = options.autosarExtensions;
    told.timeBaseStatus = options.timeBaseStatus;
    if (!options.dataIdList.empty()) {
        told.dataIds = dataIdsOf(options.dataIdList);
    }
    return told;
}

}  // namespace

DataIdList dataIdsOf(const std::string& text) {
    const std::vector<unsigned char> bytes = hexBytes(text);
    DataIdList list{};
    std::copy_n(bytes.begin(), std::min(bytes.size(), list.size()), list.begin());
    return list;
}

Settings toldIn(const std::vector<std::string>& words, const std::string& folder,
                const std::string& root) {
    if (!runsTsyn(words)) {
        return {};
    }
    CLI::App command;
    RunOptions options;
    addRunOptions(command, options);
    std::vector<std::string> left = optionWords(words, folder, root);
    std::reverse(left.begin(), left.end());
    try {
        command.parse(std::move(left));
    } catch (const CLI::Error&) {
        return {};
    }
    return settingsOf(options);
}

Settings toldTo(int pid) {
    const std::string process = "/proc/" + std::to_string(pid);
    std::istringstream text(textOf(process + "/cmdline"));
    std::vector<std::string> words;
    for (std::string word; std::getline(text, word, '\0');) {
        words.push_back(word);
    }
    return toldIn(words, process + "/cwd", process + "/root");
}

}  // namespace tsyn::doctor
