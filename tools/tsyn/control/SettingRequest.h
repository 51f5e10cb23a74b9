#pragma once

#include <optional>
#include <string>

namespace tsyn {

/** What a master may be asked to change while it runs, as it travels to it. */
struct SettingRequest {
    std::optional<long long> timeNs;
    std::optional<long long> stepNs;
    bool setsCard = false; /**< the time goes to the card's clock rather than on top of it */
    std::optional<std::string> status;
    std::optional<std::string> userData; /**< hexadecimal digits */
};

std::string requestText(const SettingRequest& request);

/** Reads what anybody may have sent. Returns what is wrong with it, empty when nothing is. */
std::string readRequest(const std::string& text, SettingRequest& request);

/** An answer: what was done, or why nothing was. */
std::string answerText(bool done, const std::string& text);

/** Reads an answer. Returns whether it was done; text becomes what it says. */
bool readAnswer(const std::string& answer, std::string& text);

}  // namespace tsyn
