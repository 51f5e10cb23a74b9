#include "tools/tsyn/daemon/SegmentSource.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace tsyn {
namespace {

constexpr const char* kFolder = "/dev/shm";

bool isSame(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino && one.st_size == other.st_size;
}

std::string thoseThere() {
    std::string list;
    for (const std::string& name : segmentNames()) {
        list += (list.empty() ? "" : ", ") + name;
    }
    return list.empty() ? "there is none on this machine, so start the daemon first"
                        : "there are those of " + list;
}

/** What keeps a record from being mapped, empty when nothing does. */
std::string fileProblem(const std::string& file, const struct stat& status) {
    if (!S_ISREG(status.st_mode)) {
        return file + " is no file; name the interface of a daemon";
    }
    if (access(file.c_str(), R_OK) != 0) {
        return file + " cannot be read (" + std::strerror(errno) +
               "); run as root or as its owner, or give readers access by the daemon's switch "
               "segmentMode";
    }
    const std::string size = file + " has " + std::to_string(status.st_size) + " bytes where a " +
                             "time record has " + std::to_string(kSharedSegmentSize);
    if (status.st_size < kSharedSegmentSize) {
        return size + ": too short, so it is not finished yet or another program's";
    }
    if (status.st_size > kSharedSegmentSize) {
        return size + ": it is another program's; name the interface of a daemon";
    }
    return {};
}

}  // namespace

std::vector<std::string> segmentNames() {
    std::vector<std::string> names;
    DIR* const folder = opendir(kFolder);
    if (folder == nullptr) {
        return names;
    }
    for (const dirent* entry = readdir(folder); entry != nullptr; entry = readdir(folder)) {
        struct stat status {};
        const bool isRecord = fstatat(dirfd(folder), entry->d_name, &status, 0) == 0 &&
                              S_ISREG(status.st_mode) && status.st_size == kSharedSegmentSize;
        if (isRecord) {
            names.emplace_back(entry->d_name);
        }
    }
    closedir(folder);
    std::sort(names.begin(), names.end());
    return names;
}

std::string SegmentSource::segmentFile() const {
    return std::string(kFolder) + "/" + interfaceName_;
}

bool SegmentSource::openCurrent() {
    const std::string file = segmentFile();
    struct stat now {};
    if (stat(file.c_str(), &now) != 0) {
        view_.reset();
        failed(interfaceName_ + ": " +
               (errno == ENOENT ? "no time record " + file + "; " + thoseThere()
                                : file + " cannot be looked at (" + std::strerror(errno) + ")"));
        return false;
    }
    if (view_ && isSame(now, file_)) {
        return true;
    }
    view_.reset();
    if (const std::string problem = fileProblem(file, now); !problem.empty()) {
        failed(interfaceName_ + ": " + problem);
        return false;
    }
    if (!view_.emplace().open(interfaceName_)) {
        view_.reset();
        failed(interfaceName_ + ": " + file + " cannot be mapped (" + std::strerror(errno) + ")");
        return false;
    }
    file_ = now;
    ++segments_;
    return true;
}

std::optional<Look> SegmentSource::look(double /*withinS*/) {
    if (!openCurrent()) {
        return {};
    }
    const std::optional<gPtpTimeDataStruct> record = view_->snapshot();
    if (!record && view_->result() != GPTP_READ_FOREIGN) {
        return failed(interfaceName_ + ": " + segmentFile() +
                      " changed with every reading, or its daemon ended while it wrote; try again");
    }
    if (!record || !isTimeRecord(*record)) {
        return failed(interfaceName_ + ": " + segmentFile() +
                      " holds no time record though it has its size: it is another program's; "
                      "name the interface of a daemon");
    }
    Look look = lookNow(*record);
    look.segment = segments_;
    return look;
}

}  // namespace tsyn
