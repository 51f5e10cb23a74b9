#pragma once

#include <optional>
#include <string>

namespace tsyn {

/** A file as /proc/PID/maps names it. Every mount of shared memory counts its inodes from one, so
 *  an inode alone is another file in another container. */
struct FileIdentity {
    unsigned int major = 0;
    unsigned int minor = 0;
    unsigned long long inode = 0;
};

/** Nothing when there is no such file. */
std::optional<FileIdentity> identityOf(const std::string& path);

/** Whether a text as of /proc/PID/maps has the file mapped, shared and writable. */
bool mapsForWriting(const std::string& maps, const FileIdentity& file);

enum class Mapping {
    kNone,     /**< not mapped for writing, or the process has ended */
    kWritable, /**< mapped for writing, so that the process may be the record's daemon */
    kHidden    /**< the process lives, and nobody may look */
};

Mapping mappingOf(int pid, const FileIdentity& file);

}  // namespace tsyn
