#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace simulate {

using Json = nlohmann::ordered_json;

/** One of the lines that a tsyn reports its state with. */
struct StatusLine {
    double atS = 0.0; /**< from the beginning of the run */
    Json fields;
};

/** The lines that one start of a tsyn wrote, without the memory that it takes: that is real, and
 *  differs from run to run. Their own times count from the start. A line that is not whole is left
 *  out. */
std::vector<StatusLine> readStatusLines(const std::string& file, double startS);

/** Throws std::runtime_error when the file cannot be written. */
void writeStatusLines(const std::string& file, const std::vector<StatusLine>& lines);

/** The number behind a name such as "subtlv.all_valid"; nothing where none stands. */
std::optional<double> numberIn(const Json& fields, const std::string& name);

}  // namespace simulate
