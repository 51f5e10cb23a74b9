#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/tsyn/Command.h"

namespace tsyn {

/** What `tsyn record` was asked to do. */
struct RecordOptions {
    std::string interfaceName;
    std::string file;
    std::string rate = "sync";
    double durationS = 0.0;  ///< 0: until a signal
    std::string maxSize = "64M";
    unsigned int kept = 3;
    bool replaces = false;
    bool waits = false;

    /** Samples a second; nothing: one with each Sync. */
    std::optional<double> rateHz() const;
    std::uint64_t maxBytes() const;
};

/** Declares the options of `tsyn record` on its subcommand; parsing fills the record. */
void addRecordOptions(CLI::App& command, RecordOptions& options);

Command addRecordCommand(CLI::App& program);

}  // namespace tsyn
