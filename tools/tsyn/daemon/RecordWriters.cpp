#include "tools/tsyn/daemon/RecordWriters.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>
#include <fstream>
#include <sstream>

namespace tsyn {
namespace {

/** As in 7f00-7f01 rw-s 00000000 00:1b 42 /dev/shm/eth1 */
bool isWritableMapping(const std::string& line, const FileIdentity& file) {
    std::istringstream fields(line);
    std::string range;
    std::string rights;
    std::string offset;
    FileIdentity mapped;
    char colon = 0;
    fields >> range >> rights >> offset >> std::hex >> mapped.major >> colon >> mapped.minor >>
        std::dec >> mapped.inode;
    const bool isSame = fields && mapped.major == file.major && mapped.minor == file.minor &&
                        mapped.inode == file.inode;
    return isSame && rights.size() == 4 && rights[1] == 'w' && rights[3] == 's';
}

bool mapsForWriting(std::istream& maps, const FileIdentity& file) {
    for (std::string line; std::getline(maps, line);) {
        if (isWritableMapping(line, file)) {
            return true;
        }
    }
    return false;
}

}  // namespace

std::optional<FileIdentity> identityOf(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        return {};
    }
    return FileIdentity{major(status.st_dev), minor(status.st_dev), status.st_ino};
}

bool mapsForWriting(const std::string& maps, const FileIdentity& file) {
    std::istringstream text(maps);
    return mapsForWriting(text, file);
}

/** Of a process that has ended and was not waited for, they are empty, or cannot be opened for its
 *  sake: that depends on the kernel. */
Mapping mappingOf(int pid, const FileIdentity& file) {
    std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
    if (!maps.is_open()) {
        return errno == ENOENT || errno == ESRCH ? Mapping::kNone : Mapping::kHidden;
    }
    return mapsForWriting(maps, file) ? Mapping::kWritable : Mapping::kNone;
}

}  // namespace tsyn
