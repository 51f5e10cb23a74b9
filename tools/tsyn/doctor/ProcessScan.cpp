#include "tools/tsyn/doctor/ProcessScan.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "tools/tsyn/daemon/RecordWriters.h"
#include "tools/tsyn/doctor/TextFile.h"

namespace tsyn::doctor {
namespace {

namespace fs = std::filesystem;

std::string linkText(const std::string& path) {
    std::error_code error;
    return fs::read_symlink(path, error).string();
}

std::string procPath(int pid, const std::string& file) {
    return "/proc/" + std::to_string(pid) + "/" + file;
}

/** Visits the names in a folder. False when it cannot be read. */
template <typename Visit>
bool forEachName(const std::string& folder, Visit visit) {
    std::error_code error;
    fs::directory_iterator entry(folder, error);
    if (error) {
        return false;
    }
    for (; entry != fs::directory_iterator() && !error; entry.increment(error)) {
        visit(entry->path().filename().string());
    }
    return true;
}

std::optional<FileIdentity> recordOf(const std::string& interfaceName) {
    return identityOf("/dev/shm/" + interfaceName);
}

/** Flags stand in octal behind "flags:". */
bool isOpenForWriting(int pid, const std::string& descriptor) {
    constexpr char kField[] = "flags:";
    const std::string info = textOf(procPath(pid, "fdinfo/" + descriptor));
    const std::size_t at = info.find(kField);
    const unsigned long flags =
        at == std::string::npos ? O_RDWR
                                : std::strtoul(info.c_str() + at + sizeof kField - 1, nullptr, 8);
    return (flags & O_ACCMODE) != O_RDONLY;
}

/** The names of some descriptors are kept from everybody; a card without a clock has no name. */
void lookAtDescriptors(Process& process, const std::string& device) {
    process.isVisible = forEachName(procPath(process.pid, "fd"), [&](const std::string& number) {
        const bool isClock =
            !device.empty() && linkText(procPath(process.pid, "fd/" + number)) == device;
        process.mayWriteClock =
            process.mayWriteClock || (isClock && isOpenForWriting(process.pid, number));
    });
}

/** Behind the name, which may hold anything but ends with the last bracket: state, parent. */
void lookAtState(Process& process) {
    const std::string status = textOf(procPath(process.pid, "stat"));
    const std::size_t end = status.rfind(')');
    if (end != std::string::npos) {
        std::istringstream words(status.substr(end + 1));
        std::string state;
        words >> state >> process.parent;
        process.isStopped = state == "T" || state == "t";
    }
}

/** An interface of that name in another network is another interface. */
bool sharesNetwork(int pid) {
    const std::string theirs = linkText(procPath(pid, "ns/net"));
    return theirs.empty() || theirs == linkText("/proc/self/ns/net");
}

std::string commandOf(int pid) {
    std::string command = textOf(procPath(pid, "cmdline"));
    std::replace(command.begin(), command.end(), '\0', ' ');
    return command;
}

Process processOf(int pid, const std::string& interfaceName, const std::string& device,
                  const std::optional<FileIdentity>& record) {
    Process process;
    process.pid = pid;
    process.name = textOf(procPath(pid, "comm"));
    process.name.erase(std::remove(process.name.begin(), process.name.end(), '\n'),
                       process.name.end());
    process.command = commandOf(pid);
    lookAtState(process);
    process.steersByName = isClockProgram(process.name) && sharesNetwork(pid);
    process.namesOurs = namesWord(process.command, interfaceName) ||
                        (!device.empty() && namesWord(process.command, device));
    process.writesRecord = record && mappingOf(pid, *record) == Mapping::kWritable;
    lookAtDescriptors(process, device);
    return process;
}

}  // namespace

bool isClockProgram(const std::string& name) {
    constexpr const char* kPrograms[] = {"ptp4l", "phc2sys", "timemaster", "ts2phc", "ptpd"};
    return std::any_of(std::begin(kPrograms), std::end(kPrograms),
                       [&](const char* program) { return name == program; });
}

bool namesWord(const std::string& command, const std::string& name) {
    const auto isPart = [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '.';
    };
    for (std::size_t at = command.find(name); at != std::string::npos;
         at = command.find(name, at + 1)) {
        const std::size_t end = at + name.size();
        // A letter before it may be an option that is written together: "-ieth1".
        const bool begins =
            at == 0 || !isPart(command[at - 1]) || (at >= 2 && command[at - 2] == '-');
        if (begins && (end == command.size() || !isPart(command[end]))) {
            return true;
        }
    }
    return false;
}

std::vector<Process> scanProcesses(const std::string& interfaceName, int clockIndex) {
    const std::string device =
        clockIndex < 0 ? std::string() : "/dev/ptp" + std::to_string(clockIndex);
    const std::optional<FileIdentity> record = recordOf(interfaceName);
    std::vector<Process> found;
    forEachName("/proc", [&](const std::string& name) {
        const int pid = static_cast<int>(std::strtol(name.c_str(), nullptr, 10));
        if (pid <= 0 || pid == getpid()) {
            return;
        }
        Process process = processOf(pid, interfaceName, device, record);
        if (process.steersByName || process.mayWriteClock || process.writesRecord) {
            found.push_back(std::move(process));
        }
    });
    return found;
}

}  // namespace tsyn::doctor
