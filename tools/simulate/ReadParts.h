#pragma once

#include <string>
#include <vector>

#include "tools/simulate/Fields.h"
#include "tools/simulate/Scenario.h"

/** The parts of reading a scenario, in the order in which they need each other. */
namespace simulate {

/** What profile is chosen by a key, if it is there. */
std::optional<std::string> readProfile(Fields& fields);

void readNodes(Fields& top, Scenario& scenario);
void readNets(Fields& top, Scenario& scenario);
void readEvents(Fields& top, Scenario& scenario);
void readLimits(Fields& top, Scenario& scenario);

/** Whether it can name an interface, and an entry of VIRTUAL_I210. */
bool isNodeName(const std::string& name);

/** The nodes that a name stands for: itself, all of a count, or with "*" all there are. */
std::vector<std::string> nodesCalled(const Scenario& scenario, const std::string& name);

/** Those of a key's names; none, and a word about it, where one is no node's. */
std::vector<std::string> readNodeNames(Fields& fields, const std::string& key,
                                       const Scenario& scenario);

}  // namespace simulate
