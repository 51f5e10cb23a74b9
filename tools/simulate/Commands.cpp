#include "tools/simulate/Commands.h"

#include <elf.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>

#include "tools/simulate/Paths.h"
#include "tools/simulate/Units.h"

namespace simulate {
namespace {

constexpr const char* kSearchedFolders =
    "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

constexpr const char* kNotBuilt = " is not there; run make";

std::string netOf(const Scenario& scenario, const std::string& node) {
    for (const Net& net : scenario.nets) {
        for (const std::string& name : net.nodes) {
            if (name == node) {
                return net.name;
            }
        }
    }
    return {};
}

bool canRun(const std::string& path) {
    return access(path.c_str(), X_OK) == 0;
}

std::string searched(const std::string& name) {
    if (name.find('/') != std::string::npos) {
        return canRun(name) ? name : "";
    }
    const std::string folders = kSearchedFolders;
    for (std::size_t at = 0; at != std::string::npos;) {
        const std::size_t end = folders.find(':', at);
        std::string path = folders.substr(at, end - at) + "/" + name;
        if (canRun(path)) {
            return path;
        }
        at = end == std::string::npos ? end : end + 1;
    }
    return {};
}

/** A script is run by a program of the machine's own word size. */
bool isThirtyTwoBit(const std::string& path) {
    std::array<char, EI_NIDENT> head{};
    std::ifstream(path, std::ios::binary).read(head.data(), head.size());
    return head[0] == ELFMAG0 && head[1] == ELFMAG1 && head[EI_CLASS] == ELFCLASS32;
}

std::string folderFor(bool i386, const std::string& buildFolder) {
    const std::filesystem::path folder = buildFolder;
    return i386 ? folder.parent_path() / "i386" : folder;
}

}  // namespace

std::string cardText(const Scenario& scenario, std::uint64_t seed) {
    std::string text = std::string("clock=simulated; state=") + kStatePath +
                       "; seed=" + std::to_string(seed) + "; capture=" + kResultsFolder +
                       "/capture.pcapng; epoch_ns=" + std::to_string(scenario.epochNs);
    for (const auto& [name, value] : scenario.machine) {
        text.append("; ").append(name).append("=").append(value);
    }
    for (const Node& node : scenario.nodes) {
        if (!node.ownsCard()) {
            continue;
        }
        text.append("; ").append(node.name).append(" phc=" + std::to_string(node.phcIndex));
        text.append(" net=").append(netOf(scenario, node.name));
        for (const auto& [name, value] : node.card) {
            text.append(" ").append(name).append("=").append(value);
        }
    }
    return text;
}

Program findProgram(const Node& node, const std::string& buildFolder) {
    Program program;
    if (node.isTsyn()) {
        program.path = folderFor(node.i386, buildFolder) + "/tsyn";
        program.preload = folderFor(node.i386, buildFolder) + "/libvirtual_i210.so";
    } else {
        const std::string wanted = filledIn(node.program, node, buildFolder);
        program.path = searched(wanted);
        if (program.path.empty() && wanted.rfind(buildFolder + "/", 0) == 0) {
            throw std::runtime_error(wanted + kNotBuilt);
        }
        if (program.path.empty()) {
            throw std::runtime_error("program '" + node.program +
                                     "' cannot be run; install it or name another");
        }
        program.preload =
            folderFor(isThirtyTwoBit(program.path), buildFolder) + "/libvirtual_i210.so";
    }
    for (const std::string& path : {program.path, program.preload}) {
        if (access(path.c_str(), R_OK) != 0) {
            throw std::runtime_error(path + kNotBuilt);
        }
    }
    return program;
}

NodeFiles filesOf(const Node& node, unsigned start) {
    const std::string base = std::string(kResultsFolder) + "/" + node.name;
    const std::string part = "." + std::to_string(start);
    return {base + ".log", base + ".csv" + part, base + ".json" + part, base + ".conf"};
}

std::vector<std::string> commandOf(const Node& node, const Program& program, const NodeFiles& files,
                                   const std::string& buildFolder) {
    std::vector<std::string> words = {program.path};
    if (node.isTsyn()) {
        words.insert(words.end(), {"run", node.cardName, "--role", node.role, "--profile",
                                   node.profile, "--json", "--log", files.log});
        if (!node.truth.empty()) {
            words.insert(words.end(), {"--truth", node.truth, "--samples", files.samples,
                                       "--sample-rate", numberText(node.sampleRateHz)});
        }
    }
    for (const std::string& option : node.options) {
        words.push_back(filledIn(option, node, buildFolder));
    }
    return words;
}

std::vector<std::string> environmentOf(const Node& node, const Program& program,
                                       const std::string& cards, const std::string& buildFolder) {
    std::vector<std::string> variables = {std::string("PATH=") + kSearchedFolders,
                                          "LANG=C",
                                          "TZ=UTC",
                                          "HOME=/",
                                          "VIRTUAL_I210=" + cards,
                                          "LD_PRELOAD=" + program.preload};
    for (const auto& [name, value] : node.environment) {
        variables.push_back(name + "=" + filledIn(value, node, buildFolder));
    }
    return variables;
}

std::string filledIn(const std::string& text, const Node& node, const std::string& buildFolder) {
    const std::map<std::string, std::string> values = {
        {"{name}", node.name},
        {"{if}", node.cardName},
        {"{phc}", "/dev/ptp" + std::to_string(node.phcIndex)},
        {"{out}", kResultsFolder},
        {"{shm}", kPrivateFolder},
        {"{build}", buildFolder},
        {"{config}", filesOf(node, 1).config}};
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = text[at] == '{' ? text.find('}', at) : std::string::npos;
        const auto found =
            values.find(end == std::string::npos ? "" : text.substr(at, end - at + 1));
        if (found == values.end()) {
            result += text[at++];
        } else {
            result += found->second;
            at = end + 1;
        }
    }
    return result;
}

}  // namespace simulate
