#include "tools/tsyn/control/SettingRequest.h"

#include <nlohmann/json.hpp>

#include "tools/tsyn/HexText.h"
#include "tools/tsyn/TimeBaseNames.h"

namespace tsyn {
namespace {

using Json = nlohmann::ordered_json;

std::string dumped(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

/** Takes one member; false when it is unknown or holds something else than it should. */
bool takeMember(const std::string& name, const Json& value, SettingRequest& request) {
    if (name == "time_ns" && value.is_number_integer()) {
        request.timeNs = value.get<long long>();
    } else if (name == "step_ns" && value.is_number_integer()) {
        request.stepNs = value.get<long long>();
    } else if (name == "card" && value.is_boolean()) {
        request.setsCard = value.get<bool>();
    } else if (name == "status" && value.is_string()) {
        request.status = value.get<std::string>();
    } else if (name == "user_data" && value.is_string()) {
        request.userData = value.get<std::string>();
    } else {
        return false;
    }
    return true;
}

}  // namespace

std::string requestText(const SettingRequest& request) {
    Json json = Json::object();
    if (request.timeNs) {
        json["time_ns"] = *request.timeNs;
    }
    if (request.stepNs) {
        json["step_ns"] = *request.stepNs;
    }
    if (request.setsCard) {
        json["card"] = true;
    }
    if (request.status) {
        json["status"] = *request.status;
    }
    if (request.userData) {
        json["user_data"] = *request.userData;
    }
    return dumped(json);
}

std::string readRequest(const std::string& text, SettingRequest& request) {
    const Json json = Json::parse(text, nullptr, false);
    if (!json.is_object() || json.empty()) {
        return "not a request: needs a JSON object with time_ns, step_ns, status or user_data";
    }
    for (const auto& [name, value] : json.items()) {
        if (!takeMember(name, value, request)) {
            return "'" + name.substr(0, 32) + "' is unknown, or of the wrong type";
        }
    }
    if (request.timeNs && request.stepNs) {
        return "time_ns and step_ns exclude each other";
    }
    if (request.status && timeBaseNames().count(*request.status) == 0) {
        return "status is none of none, gateway, global, global+gateway";
    }
    if (request.userData) {
        const std::string problem = hexProblem(*request.userData, 1, 3);
        return problem.empty() ? "" : "user_data " + problem;
    }
    return {};
}

std::string answerText(bool done, const std::string& text) {
    return dumped({{"ok", done}, {"text", text}});
}

bool readAnswer(const std::string& answer, std::string& text) {
    const Json json = Json::parse(answer, nullptr, false);
    if (!json.is_object()) {
        text = "an answer that cannot be read";
        return false;
    }
    text = json.value("text", "");
    return json.value("ok", false);
}

}  // namespace tsyn
