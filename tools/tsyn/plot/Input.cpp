#include "tools/tsyn/plot/Input.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>
#include <sstream>

namespace tsyn {
namespace {

constexpr const char* kTruthColumns = "t_s,error_ns,bracket_ns,valid";

std::string fileName(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

/** The lines of one file, and what is wrong with them. */
class Lines {
public:
    explicit Lines(const std::string& path) : path_(path), stream_(path, std::ios::binary) {}

    bool isOpen() const { return stream_.is_open(); }

    bool next(std::string& line) {
        if (!std::getline(stream_, line)) {
            return false;
        }
        ++number_;
        isCut_ = stream_.eof();
        return true;
    }

    /** The line read last has no end. */
    bool isCut() const { return isCut_; }

    void leaveOut() {
        if (bad_ == 0) {
            firstBad_ = number_;
        }
        ++bad_;
    }

    void tellDamages(std::vector<std::string>& damages, std::size_t samples) const {
        if (isCut_) {
            damages.push_back(path_ + ": its last line is cut; the " + std::to_string(samples) +
                              " samples before it are used");
        }
        if (bad_ > 0) {
            damages.push_back(path_ + ": " + std::to_string(bad_) +
                              " lines that are no samples are left out, the first is line " +
                              std::to_string(firstBad_));
        }
    }

private:
    std::string path_;
    std::ifstream stream_;
    std::size_t number_ = 0;
    std::size_t bad_ = 0;
    std::size_t firstBad_ = 0;
    bool isCut_ = false;
};

bool isEvent(const std::string& line, RecordedEvent& event) {
    std::istringstream words(line);
    std::string hash;
    if (!(words >> hash >> event.kind >> event.systemNs)) {
        return false;
    }
    std::getline(words >> std::ws, event.text);
    return hash == "#";
}

std::string textOf(const nlohmann::json& about, const char* key) {
    const auto found = about.find(key);
    return found != about.end() && found->is_string() ? found->get<std::string>() : "?";
}

std::string noSamples(const std::string& path) {
    return path + ": holds no samples; record for longer, or leave it out";
}

std::string addRecording(PlotInput& input, const std::string& path, const std::string& head,
                         Lines& lines) {
    const auto about = nlohmann::json::parse(head, nullptr, false);
    std::string columns;
    RecordingParser parser;
    if (!about.is_object() || !lines.next(columns) || lines.isCut() ||
        !parser.setColumns(columns)) {
        return path +
               ": its head is damaged; it must begin with the two lines that tsyn record "
               "writes first";
    }
    PlotSource source;
    source.name = textOf(about, "interface");
    RecordedEvent event;
    for (std::string line; lines.next(line) && !lines.isCut();) {
        if (line.compare(0, 2, "# ") == 0) {
            if (isEvent(line, event)) {
                source.events.push_back(event);
            }
        } else if (auto sample = parser.parse(line)) {
            source.samples.push_back(std::move(*sample));
        } else {
            lines.leaveOut();
        }
    }
    const std::size_t count = source.samples.size();
    input.files.push_back(fileName(path) + ": " + std::to_string(count) + " samples of " +
                          source.name + ", " + textOf(about, "start") + ", tsyn " +
                          textOf(about, "tsyn") + " (" + textOf(about, "abi") + ") on " +
                          textOf(about, "host"));
    lines.tellDamages(input.damages, count);
    if (count == 0) {
        return noSamples(path);
    }
    input.sources.push_back(std::move(source));
    return {};
}

bool parseTruth(const std::string& line, bool withBounds, TrueSample& sample) {
    constexpr std::size_t kColumns = 6;
    double values[kColumns] = {};
    const std::size_t count = withBounds ? kColumns : kColumns - 2;
    const char* at = line.c_str();
    for (std::size_t i = 0; i < count; ++i) {
        char* end = nullptr;
        values[i] = std::strtod(at, &end);
        const char expected = i + 1 < count ? ',' : '\0';
        if (end == at || *end != expected || !std::isfinite(values[i])) {
            return false;
        }
        at = end + 1;
    }
    const bool isValid = values[3] == 1.0;
    sample = {values[0], values[1], isValid, withBounds && isValid, values[4], values[5]};
    return true;
}

std::string addTruth(PlotInput& input, const std::string& path, const std::string& columns,
                     Lines& lines) {
    const bool withBounds = columns != kTruthColumns;
    PlotSource source;
    source.name = fileName(path);
    TrueSample sample;
    for (std::string line; lines.next(line) && !lines.isCut();) {
        if (parseTruth(line, withBounds, sample)) {
            source.truth.push_back(sample);
        } else {
            lines.leaveOut();
        }
    }
    input.files.push_back(source.name + ": " + std::to_string(source.truth.size()) +
                          " comparisons with the true time");
    lines.tellDamages(input.damages, source.truth.size());
    if (source.truth.empty()) {
        return noSamples(path);
    }
    input.sources.push_back(std::move(source));
    return {};
}

}  // namespace

std::string addFile(PlotInput& input, const std::string& path) {
    errno = 0;
    Lines lines(path);
    std::string line;
    const bool isRead = lines.isOpen() && lines.next(line);
    if (!isRead && errno != 0) {
        return path + ": cannot be read (" + std::strerror(errno) +
               "); name a file of tsyn record or of tsyn run --samples";
    }
    if (!isRead) {
        return path + ": is empty; name a file of tsyn record or of tsyn run --samples";
    }
    const std::string magic = kRecordingMagic;
    if (line.compare(0, magic.size(), magic) == 0) {
        return addRecording(input, path, line.substr(magic.size()), lines);
    }
    if (line == kTruthColumns || line == std::string(kTruthColumns) + ",outside_ns,width_ns") {
        return addTruth(input, path, line, lines);
    }
    return path +
           ": is neither of tsyn record nor of tsyn run --samples; its first line tells "
           "what a file is";
}

void joinSources(PlotInput& input) {
    const auto startOf = [](const PlotSource& source) {
        return source.samples.empty() ? std::numeric_limits<long long>::max()
                                      : source.samples.front().systemNs;
    };
    std::stable_sort(input.sources.begin(), input.sources.end(),
                     [&](const PlotSource& one, const PlotSource& other) {
                         return startOf(one) < startOf(other);
                     });
    std::vector<PlotSource> joined;
    for (PlotSource& source : input.sources) {
        const auto same = std::find_if(joined.begin(), joined.end(), [&](const PlotSource& other) {
            return other.name == source.name && !other.samples.empty() && !source.samples.empty();
        });
        if (same == joined.end()) {
            joined.push_back(std::move(source));
            continue;
        }
        same->samples.insert(same->samples.end(), source.samples.begin(), source.samples.end());
        same->events.insert(same->events.end(), source.events.begin(), source.events.end());
    }
    input.sources = std::move(joined);
}

}  // namespace tsyn
