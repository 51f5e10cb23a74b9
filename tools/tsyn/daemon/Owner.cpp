#include "tools/tsyn/daemon/Owner.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "tools/common/OwnDescriptor.h"
#include "tools/tsyn/daemon/PacketSockets.h"

namespace tsyn {
namespace {

std::string processFile(int pid, const char* name) {
    return "/proc/" + std::to_string(pid) + "/" + name;
}

std::string commandOf(int pid) {
    std::ifstream file(processFile(pid, "comm"));
    std::string command;
    std::getline(file, command);
    return command;
}

Owner writerOf(const FileIdentity& file, const std::string& interfaceName) {
    Owner owner;
    DIR* const processes = opendir("/proc");
    bool isHidden = processes == nullptr;
    while (processes != nullptr && owner.pid == 0) {
        const dirent* const entry = readdir(processes);
        if (entry == nullptr) {
            break;
        }
        const auto pid = static_cast<int>(std::strtol(entry->d_name, nullptr, 10));
        const Mapping mapping = pid > 0 ? mappingOf(pid, file) : Mapping::kNone;
        isHidden = isHidden || mapping == Mapping::kHidden;
        if (mapping == Mapping::kWritable) {
            owner = {pid, Owner::Life::kLives, commandOf(pid)};
        }
    }
    if (processes != nullptr) {
        closedir(processes);
    }
    if (owner.pid == 0 && (!isHidden || !mayBeListenedTo(interfaceName))) {
        owner.life = Owner::Life::kEnded;
    }
    return owner;
}

/** When a process began, in a unit of the kernel's; nothing of one that is no more, or only waits
 *  for its parent. No other process under the same pid has the same. */
std::optional<unsigned long long> beginningOf(int pid) {
    const tools::OwnDescriptor file(open(processFile(pid, "stat").c_str(), O_RDONLY | O_CLOEXEC));
    char text[1024];
    const ssize_t length = file.isOpen() ? read(file.get(), text, sizeof text - 1) : 0;
    text[std::max<ssize_t>(0, length)] = '\0';
    // The name before may hold anything, so the last parenthesis counts.
    const char* const name = std::strrchr(text, ')');
    if (name == nullptr) {
        return {};
    }
    std::istringstream words(name + 1);
    char state = 'X';
    unsigned long long beginning = 0;
    words >> state;
    constexpr int kFieldsBetween = 18;
    std::string between;
    for (int i = 0; i < kFieldsBetween; ++i) {
        words >> between;
    }
    if (!(words >> beginning) || state == 'Z' || state == 'X') {
        return {};
    }
    return beginning;
}

/** A search reads the mappings of every process. */
constexpr double kSearchPeriodS = 5.0;

}  // namespace

/** Its mappings are read once only: they are long. */
void OwnerFinder::check(int pid, const FileIdentity& file) {
    const std::optional<unsigned long long> beginning = beginningOf(pid);
    const bool isKnown =
        owner_.pid == pid && owner_.life == Owner::Life::kLives && beginning_ == beginning;
    if (!beginning) {
        owner_ = {pid, Owner::Life::kEnded, {}};
    } else if (!isKnown) {
        const bool writes = mappingOf(pid, file) != Mapping::kNone;
        owner_ = {pid, writes ? Owner::Life::kLives : Owner::Life::kEnded,
                  writes ? commandOf(pid) : ""};
    }
    beginning_ = beginning;
}

const Owner& OwnerFinder::find(const Look& look, const std::string& segmentFile) {
    const std::optional<FileIdentity> file = identityOf(segmentFile);
    const int toldPid = look.quality ? static_cast<int>(look.quality->ownerPid) : 0;
    if (!file) {
        owner_ = {toldPid, {}, {}};
        return owner_;
    }
    if (toldPid != 0) {
        check(toldPid, *file);
        return owner_;
    }
    if (owner_.life == Owner::Life::kLives) {
        check(owner_.pid, *file);
    }
    const bool isDue = !searchedS_ || look.monotonicS - *searchedS_ >= kSearchPeriodS;
    if (owner_.life != Owner::Life::kLives && isDue) {
        searchedS_ = look.monotonicS;
        const int lastPid = owner_.pid;
        owner_ = writerOf(*file, segmentFile.substr(segmentFile.rfind('/') + 1));
        beginning_ = beginningOf(owner_.pid);
        owner_.pid = owner_.pid != 0 ? owner_.pid : lastPid;
    }
    return owner_;
}

std::string whoEnded(const Owner& owner) {
    return owner.pid != 0 ? "owner " + std::to_string(owner.pid) + " has ended"
                          : "no process writes this record";
}

std::string endedText(const Owner& owner) {
    return whoEnded(owner) + "; what is shown is its " + (owner.pid != 0 ? "last" : "owner's last");
}

bool hasEnded(const Owner& owner, const DaemonState& daemon) {
    return owner.life == Owner::Life::kEnded && !daemon.isMoving();
}

}  // namespace tsyn
