#include "tests/support/Vectors.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/support/Hex.h"

namespace {

constexpr std::size_t kExtendedSize = 10;

[[noreturn]] void fail(const std::string& what) {
    std::fprintf(stderr, "vectors: %s: %s\n", ZEB_VECTORS_FILE, what.c_str());
    std::abort();
}

nlohmann::json readFile() {
    std::ifstream file(ZEB_VECTORS_FILE);
    if (!file) {
        fail("cannot be read");
    }
    // From memory: every case is a process of its own and reads them anew.
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    nlohmann::json content = nlohmann::json::parse(text, nullptr, false);
    if (content.is_discarded()) {
        fail("is not valid JSON");
    }
    return content;
}

/** Text of an integer of which all characters must be used up. */
const char* integerText(const nlohmann::json& value) {
    if (!value.is_string() || value.get_ref<const std::string&>().empty()) {
        fail("a 64-bit integer must be a decimal string, not " + value.dump());
    }
    return value.get_ref<const std::string&>().c_str();
}

}  // namespace

const nlohmann::json& vectors(const std::string& group) {
    static const nlohmann::json content = readFile();
    for (const nlohmann::json& candidate : content.at("groups")) {
        if (candidate.at("group") == group) {
            const nlohmann::json& found = candidate.at("vectors");
            if (found.empty()) {
                fail("group '" + group + "' is empty");
            }
            return found;
        }
    }
    fail("has no group '" + group + "'");
}

long double fromX87(const nlohmann::json& value) {
    const std::vector<unsigned char> bytes = fromHex(value.at("x87").get<std::string>());
    if (bytes.size() != kExtendedSize) {
        fail("an extended value has ten bytes: " + value.dump());
    }
    long double result = 0;
    std::memcpy(&result, bytes.data(), kExtendedSize);
    return result;
}

unsigned long long toU64(const nlohmann::json& value) {
    const char* const text = integerText(value);
    char* end = nullptr;
    const unsigned long long number = std::strtoull(text, &end, 10);
    if (*end != '\0') {
        fail("not an integer: " + value.dump());
    }
    return number;
}

long long toS64(const nlohmann::json& value) {
    const char* const text = integerText(value);
    char* end = nullptr;
    const long long number = std::strtoll(text, &end, 10);
    if (*end != '\0') {
        fail("not an integer: " + value.dump());
    }
    return number;
}
