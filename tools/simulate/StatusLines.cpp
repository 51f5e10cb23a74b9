#include "tools/simulate/StatusLines.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace simulate {

std::vector<StatusLine> readStatusLines(const std::string& file, double startS) {
    std::vector<StatusLine> lines;
    std::ifstream stream(file);
    std::string text;
    while (std::getline(stream, text)) {
        Json fields = Json::parse(text, nullptr, false);
        if (!fields.is_object()) {
            continue;
        }
        fields.erase("rss_kib");
        const double ownS = fields.value("t_s", fields.value("duration_s", 0.0));
        lines.push_back({startS + ownS, std::move(fields)});
    }
    return lines;
}

void writeStatusLines(const std::string& file, const std::vector<StatusLine>& lines) {
    std::ofstream stream(file);
    for (const StatusLine& line : lines) {
        stream << line.fields.dump() << '\n';
    }
    if (!stream.flush()) {
        throw std::runtime_error(file + ": cannot be written: " + std::strerror(errno));
    }
}

std::optional<double> numberIn(const Json& fields, const std::string& name) {
    const std::size_t point = name.find('.');
    const auto found = fields.find(name.substr(0, point));
    if (found == fields.end()) {
        return std::nullopt;
    }
    if (point != std::string::npos) {
        return found->is_object() ? numberIn(*found, name.substr(point + 1)) : std::nullopt;
    }
    return found->is_number() ? std::optional<double>(found->get<double>()) : std::nullopt;
}

}  // namespace simulate
