#include "tools/tsyn/run/ProfileSwitches.h"

#include <algorithm>
#include <charconv>
#include <system_error>

#include "tools/tsyn/HexText.h"

namespace tsyn {
namespace {

constexpr const char* kMasterIdentity = "masterIdentity";

/** Highest value of a switch, -1 for none of that name. */
int highestOf(const std::string& name) {
    const char* each = nullptr;
    int highest = 0;
    for (unsigned int i = 0; ZebEthTSynInterface_GetProfileSwitch(i, &each, &highest) == 0; ++i) {
        if (name == each) {
            return highest;
        }
    }
    return -1;
}

std::string allNames() {
    std::string names = kMasterIdentity;
    const char* each = nullptr;
    int highest = 0;
    for (unsigned int i = 0; ZebEthTSynInterface_GetProfileSwitch(i, &each, &highest) == 0; ++i) {
        names += std::string(", ") + each;
    }
    return names;
}

std::string setMasterIdentity(TSynProfile& profile, std::string value) {
    constexpr std::size_t kBytes = sizeof profile.masterIdentity;
    value.erase(std::remove(value.begin(), value.end(), ':'), value.end());
    std::string problem = hexProblem(value, kBytes, kBytes);
    if (!problem.empty()) {
        return std::string(kMasterIdentity) + " " + problem;
    }
    const auto bytes = hexBytes(value);
    std::copy(bytes.begin(), bytes.end(), profile.masterIdentity);
    return {};
}

}  // namespace

std::string setSwitch(TSynProfile& profile, const std::string& text) {
    const std::size_t sign = text.find('=');
    const std::string name = text.substr(0, sign);
    const std::string value = sign == std::string::npos ? "" : text.substr(sign + 1);
    if (name == kMasterIdentity) {
        return setMasterIdentity(profile, value);
    }
    const int highest = highestOf(name);
    if (highest < 0) {
        return "no switch '" + name + "'; there are " + allNames();
    }
    int number = 0;
    const char* const end = value.data() + value.size();
    const auto read = std::from_chars(value.data(), end, number);
    if (value.empty() || read.ptr != end || read.ec != std::errc() ||
        ZebEthTSynInterface_SetProfileSwitch(&profile, name.c_str(), number) != 0) {
        return name + " needs a number from 0 to " + std::to_string(highest) + ", such as " + name +
               "=" + std::to_string(std::min(highest, 1));
    }
    return {};
}

}  // namespace tsyn
