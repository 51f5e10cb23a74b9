#include "tools/tsyn/doctor/DoctorCommand.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "tools/tsyn/StandardOutput.h"
#include "tools/tsyn/doctor/CardEvidence.h"
#include "tools/tsyn/doctor/CardGates.h"
#include "tools/tsyn/doctor/DoctorReport.h"
#include "tools/tsyn/doctor/Listener.h"
#include "tools/tsyn/doctor/ProcessScan.h"
#include "tools/tsyn/doctor/RecordEvidence.h"
#include "tools/tsyn/doctor/Settle.h"
#include "tools/tsyn/doctor/Told.h"

namespace tsyn {
namespace {

constexpr int kAllPass = 0;
constexpr int kOneFails = 1;
constexpr int kCannotLook = 2;

/** Returns why nothing can be looked at, empty otherwise. */
std::string collect(doctor::Evidence& evidence) {
    std::string problem = doctor::collectCard(evidence);
    const doctor::InterfaceFacts& interface = evidence.interface;
    if (!problem.empty() || interface.index == 0) {
        return problem;
    }
    const std::string& name = evidence.expected.interfaceName;
    doctor::RecordWitness record(name, evidence.record);
    record.noteBefore();
    if (interface.isUp && interface.hasCarrier) {
        evidence.wire = doctor::listen(evidence);
    }
    record.noteAfter();
    evidence.processes = doctor::scanProcesses(name, evidence.clock.index);
    if (const int pid = doctor::daemonPid(evidence); pid != 0) {
        evidence.used = doctor::toldTo(pid);
    }
    doctor::settle(evidence);
    return {};
}

bool wantsColour() {
    return isatty(STDOUT_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr;
}

}  // namespace

int doctorCommand(const DoctorOptions& options) {
    doctor::Evidence evidence = options.question();
    const std::string problem = collect(evidence);
    if (!problem.empty()) {
        std::fprintf(stderr, "tsyn: %s: %s\n", options.interfaceName.c_str(), problem.c_str());
        return kCannotLook;
    }
    const std::vector<doctor::Judgement> judgements = doctor::judgeAll(evidence);
    const std::string report = options.json
                                   ? doctor::doctorJson(evidence, judgements) + "\n"
                                   : doctor::doctorText(evidence, judgements, wantsColour());
    std::fputs(report.c_str(), stdout);
    return outputStatus(doctor::firstFailed(judgements) == nullptr ? kAllPass : kOneFails,
                        kCannotLook);
}

}  // namespace tsyn
