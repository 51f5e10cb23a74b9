#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace simulate {

/** Both are of it. */
struct Seeds {
    std::uint64_t first = 1;
    std::uint64_t last = 1;
};

/** "7" or "1..20"; nothing for other texts and for more than a million seeds. */
std::optional<Seeds> parseSeeds(const std::string& text);

/** What is wrong with the text of seeds and what to write; empty where nothing is. */
std::string seedsMistake(const std::string& text);

/** As it can be typed into a shell. */
std::string shellWord(const std::string& text);

}  // namespace simulate
