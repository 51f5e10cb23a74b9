#pragma once

#include "tools/tsyn/Command.h"
#include "tools/tsyn/doctor/Evidence.h"

namespace tsyn {

/** What `tsyn doctor` was asked to do. */
struct DoctorOptions {
    std::string interfaceName;
    std::string role = "slave";
    std::string profile = "standard";
    unsigned int domain = 0;
    int vlanId = -1;
    double syncIntervalMs = 125.0;
    std::string dataIdList;
    double listenS = 3.0;
    bool json = false;

    doctor::Expectation expectation() const;
};

/** Declares the options of `tsyn doctor` on its subcommand; parsing fills the record. */
void addDoctorOptions(CLI::App& command, DoctorOptions& options);

Command addDoctorCommand(CLI::App& program);

}  // namespace tsyn
