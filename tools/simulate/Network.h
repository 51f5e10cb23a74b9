#pragma once

#include <string>

#include "tools/simulate/Scenario.h"

namespace simulate {

/** Leaves for network, mounts and processes of the run's own, which vanish with its first process:
 *  the one that returns from here, which a waiting parent stands in for. Where the caller is not
 *  root, a user namespace makes it root inside. Throws std::runtime_error. */
void enterNamespaces();

/** Mounts the private folder and lets its `out` lead to the results. Throws std::runtime_error. */
void makePrivateFolder(const std::string& results);

/** What `ip -batch` reads to make the interfaces of all nodes, up, with addresses 02-00-00-00-nn-nn
 *  and indices counted up in the order of the nodes. */
std::string networkCommands(const Scenario& scenario);

/** Makes them and waits until they carry frames. Throws std::runtime_error. */
void makeNetwork(const Scenario& scenario);

/** What `ip link set` does. Throws std::runtime_error. */
void setInterface(const std::string& name, bool up);

}  // namespace simulate
