#pragma once

#include <map>
#include <string>
#include <vector>

#include "tools/tsyn/doctor/Evidence.h"

/** Questions about the frames that were heard. Pure. */
namespace tsyn::doctor {

using Frames = std::vector<const Heard*>;

/** What a frame must have met before the next question is asked of it. */
enum class Stage { kAny, kVersion, kDomain, kVlan, kTransport };

/** What the daemon lives on, as far as it meets all up to this stage: a slave on the Sync of
 * others, a master on their Pdelay_Req. */
Frames needed(const Evidence& evidence, Stage stage);

/** Of one message type, from others or from this node itself. */
Frames ofType(const Evidence& evidence, unsigned int type, bool own);

/** The same in the expected domain, VLAN and so on: what a daemon takes. */
Frames takenOfType(const Evidence& evidence, unsigned int type, bool own);

/** sourcePortIdentity as clockIdentity-portNumber. */
std::string portText(const Heard& frame);
/** The port that a response is for. */
std::string requesterText(const Heard& frame);
unsigned int sequenceOf(const Heard& frame);

std::string macText(const MacAddress& address);

/** "24 Sync, 24 Follow_Up". */
std::string countText(const Evidence& evidence, bool own);

/** The ports that sent these frames, with how many each. */
std::map<std::string, unsigned int> portsOf(const Frames& frames);

/** The Sync of the daemon's master: those of the port that sent most. */
Frames masterSyncs(const Evidence& evidence);

/** The Follow_Up of each Sync, null where none came. */
Frames followUpsOf(const Evidence& evidence, const Frames& syncs, bool own);

/** Without the last one, whose answer may have come after the end of the listening. */
Frames answerable(const Evidence& evidence, const Frames& frames);

/** The master's rate over that of the card, less 1, in ppm: between the first and the last Sync
 * that have a receive stamp and a Follow_Up. */
std::optional<double> masterRatePpm(const Evidence& evidence);

}  // namespace tsyn::doctor
