#pragma once

#include "tools/tsyn/doctor/Gates.h"

/** Gates of the machine: interface, card, rights, other programs. */
namespace tsyn::doctor {

Verdict judgeInterface(const Evidence& evidence);
Verdict judgeCarrier(const Evidence& evidence);
Verdict judgeCapabilities(const Evidence& evidence);
Verdict judgeClock(const Evidence& evidence);
Verdict judgeSteering(const Evidence& evidence);
Verdict judgeTimestamping(const Evidence& evidence);
Verdict judgeReception(const Evidence& evidence);

/** The processes that write the published record; a child that inherited it is none. */
std::vector<const Process*> daemonsOf(const Evidence& evidence);

/** 0: none is known. */
int daemonPid(const Evidence& evidence);

/** Somebody writes the record for certain. */
bool recordMoves(const Evidence& evidence);

/** A process has the record, or moves it. */
bool daemonLives(const Evidence& evidence);

}  // namespace tsyn::doctor
