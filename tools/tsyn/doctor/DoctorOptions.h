#pragma once

#include <optional>
#include <string>

#include "tools/tsyn/Command.h"
#include "tools/tsyn/doctor/Evidence.h"

namespace tsyn {

/** What `tsyn doctor` was asked to do. */
struct DoctorOptions {
    std::string interfaceName;
    std::string role; /**< empty: that of the daemon, as all that is left open */
    std::string profile;
    std::optional<unsigned int> domain;
    std::optional<int> vlanId;
    std::optional<double> syncIntervalMs;
    std::string dataIdList;
    double listenS = 3.0;
    bool json = false;

    /** An evidence that holds what was asked for, and nothing yet of what is. */
    doctor::Evidence question() const;
};

/** Declares the options of `tsyn doctor` on its subcommand; parsing fills the record. */
void addDoctorOptions(CLI::App& command, DoctorOptions& options);

Command addDoctorCommand(CLI::App& program);

}  // namespace tsyn
