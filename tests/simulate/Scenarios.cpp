#include "tests/simulate/Scenarios.h"

const char* const kPairText = R"(duration = "60s"
seed = 3

[[node]]
name = "master"
role = "master"

[[node]]
name = "slave"
role = "slave"
rate_ppb = 37000
truth = "master"

[[link]]
between = ["master", "slave"]

)";

std::string pairWith(const std::string& lines) {
    return kPairText + lines;
}

simulate::Scenario readPairWith(const std::string& lines) {
    return simulate::parseScenario(pairWith(lines), "pair.toml");
}

std::string mistakesIn(const std::string& text) {
    try {
        simulate::parseScenario(text, "pair.toml");
    } catch (const simulate::ScenarioError& error) {
        return error.what();
    }
    return {};
}
