#include <algorithm>

#include "tools/simulate/ReadParts.h"

namespace simulate {
namespace {

void readNet(const toml::table& table, bool bridge, Fields& top, Scenario& scenario) {
    const std::string kind = bridge ? "bridge" : "link";
    const std::string key = bridge ? "nodes" : "between";
    Fields fields(table, "[[" + kind + "]]", top.problems());
    Net net;
    net.line = fields.line();
    net.bridge = bridge;
    const auto before = std::count_if(scenario.nets.begin(), scenario.nets.end(),
                                      [&](const Net& other) { return other.bridge == bridge; });
    net.name = fields.text("name").value_or(kind + std::to_string(before + 1));
    fields.require(key, "write the names of the nodes");
    net.nodes = readNodeNames(fields, key, scenario);
    fields.finish();
    if (!isNodeName(net.name) || scenario.find(net.name) != nullptr) {
        fields.wrong("name", "'" + net.name +
                                 "' is no name or a node's; write a letter, then letters, digits "
                                 "or '_', up to 15 in all");
    }
    for (const Net& other : scenario.nets) {
        if (other.name == net.name) {
            fields.wrong("name", "'" + net.name + "' is taken by line " +
                                     std::to_string(other.line) + "; give each its own name");
        }
    }
    if (!net.nodes.empty() && !bridge && net.nodes.size() != 2) {
        fields.wrong(key, "a link has two ends; name two nodes, or write a [[bridge]]");
    }
    scenario.nets.push_back(net);
}

void checkMembership(Fields& top, const Scenario& scenario) {
    for (const Node& node : scenario.nodes) {
        std::vector<const Net*> of;
        for (const Net& net : scenario.nets) {
            for (const std::string& name : net.nodes) {
                if (name == node.name) {
                    of.push_back(&net);
                }
            }
        }
        if (!node.ownsCard() && !of.empty()) {
            top.problems().add(of[0]->line, "'" + node.name + "' has no card of its own; name '" +
                                                node.cardName + "'");
        } else if (node.ownsCard() && of.empty()) {
            top.problems().add(node.line, "[[node]]: '" + node.name +
                                              "' is on no [[link]] and no [[bridge]]; it has to "
                                              "be on one");
        } else if (of.size() > 1) {
            const bool twice = of[0] == of[1];
            top.problems().add(
                of[1]->line,
                "'" + node.name + "' is " +
                    (twice ? "named twice" : "also named by line " + std::to_string(of[0]->line)) +
                    "; a node is on one link or bridge, once");
        }
    }
}

}  // namespace

void readNets(Fields& top, Scenario& scenario) {
    for (const toml::table* table : top.tables("link")) {
        readNet(*table, false, top, scenario);
    }
    for (const toml::table* table : top.tables("bridge")) {
        readNet(*table, true, top, scenario);
    }
    // A name that is none leaves its node without a cable, which need not be told as well.
    if (top.problems().none()) {
        checkMembership(top, scenario);
    }
}

}  // namespace simulate
