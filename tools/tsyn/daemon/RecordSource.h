#pragma once

#include <memory>
#include <optional>
#include <string>

#include "tools/tsyn/daemon/Look.h"

namespace tsyn {

/** Where the record of another process's daemon is looked at. */
class RecordSource {
public:
    RecordSource() = default;
    virtual ~RecordSource() = default;
    RecordSource(const RecordSource&) = delete;
    RecordSource& operator=(const RecordSource&) = delete;

    /** A fresh look, waited for up to so many seconds. Nothing when there is none to be had;
     *  problem() then tells why, and the next call tries again. */
    virtual std::optional<Look> look(double withinS) = 0;

    /** Why the latest look failed: what, where and what to do, in one line. */
    const std::string& problem() const { return problem_; }

    /** As the user named it: an interface, or the host and port of a spy. */
    virtual std::string name() const = 0;

    /** The daemon reads the system clock of this host, so that ages and bounds can be told. */
    virtual bool sharesClock() const = 0;

    /** The file of a segment that is mapped, and nothing of a spy. */
    virtual std::string segmentFile() const { return {}; }

protected:
    std::optional<Look> failed(const std::string& problem) {
        problem_ = problem;
        return {};
    }

private:
    std::string problem_;
};

/** Which daemon a command looks at. */
struct SourceOptions {
    std::string interfaceName;
    std::string spy; /**< HOST[:PORT]; empty: the segment of interfaceName */
};

/** Opens nothing yet: the first look does. */
std::unique_ptr<RecordSource> makeSource(const SourceOptions& options);

}  // namespace tsyn
