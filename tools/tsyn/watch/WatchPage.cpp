#include "tools/tsyn/watch/WatchPage.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "tools/tsyn/daemon/Counters.h"
#include "tools/tsyn/daemon/DaemonText.h"
#include "tools/tsyn/watch/Sparkline.h"

namespace tsyn {
namespace {

constexpr std::size_t kLabelColumns = 10;
constexpr std::size_t kSparklineLabel = 7;
constexpr std::size_t kShortRange = 13;
constexpr std::size_t kFullRange = 32;
constexpr std::size_t kLeastSparkline = 10;

std::string labelled(const std::string& label, const std::string& text) {
    std::string line = label;
    line.resize(std::max(kLabelColumns, line.size() + 1), ' ');
    return line + text;
}

struct SparklineRow {
    const char* label;
    const RecentValues& series;
    const char* unit;
    int decimals;
};

/** "least .. most unit" of the values that are shown; in short, how far both are apart. */
std::string rangeText(const SparklineRow& row, std::size_t shown, bool inShort) {
    double least = INFINITY;
    double most = -INFINITY;
    const std::size_t size = row.series.size();
    for (std::size_t i = size - std::min(size, shown); i < size; ++i) {
        least = std::min(least, row.series[i].value_or(INFINITY));
        most = std::max(most, row.series[i].value_or(-INFINITY));
    }
    if (least > most) {
        return "-";
    }
    char text[96];
    if (inShort) {
        std::snprintf(text, sizeof text, "%.*f %s", row.decimals, most - least, row.unit);
    } else {
        std::snprintf(text, sizeof text, "%.*f .. %.*f %s", row.decimals, least, row.decimals, most,
                      row.unit);
    }
    return text;
}

std::vector<std::string> sparklines(const Watcher& watcher, const PageShape& shape) {
    const History& history = watcher.history();
    const SparklineRow kRows[] = {{"offset", history.offset(), "ns", 0},
                                  {"moved", history.moved(), "ns", 0},
                                  {"bound", history.bound(), "ns", 0},
                                  {"rate", history.rate(), "ppm", 3},
                                  {"delay", history.delay(), "ns", 0}};
    const std::size_t beside = kSparklineLabel + kShortRange;
    const std::size_t room = std::max(shape.columns, beside + kLeastSparkline) - beside;
    const std::size_t width = std::min(History::kLength, room);
    const bool inShort = shape.columns < kSparklineLabel + width + kFullRange;
    std::vector<std::string> lines;
    for (const SparklineRow& row : kRows) {
        std::string line = row.label;
        line.resize(kSparklineLabel, ' ');
        lines.push_back(line + sparkline(row.series, width, shape.utf8) + " " +
                        rangeText(row, width, inShort));
    }
    return lines;
}

std::vector<std::string> counterCells(const Watcher& watcher) {
    const std::vector<Counter> counters = countersOf(watcher.daemon().latest());
    std::vector<std::string> cells;
    for (std::size_t i = 0; i < counters.size(); ++i) {
        const double rate = i < watcher.perSecond().size() ? watcher.perSecond()[i] : 0.0;
        char text[96];
        std::snprintf(text, sizeof text, "%-10s %10u %+8.1f/s", counters[i].label,
                      counters[i].value, rate);
        cells.emplace_back(text);
    }
    return cells;
}

std::string helpLine(const PageShape& shape, std::size_t missing) {
    std::string line =
        shape.isPaused ? "PAUSED   p, space: go on   q: quit" : "p, space: pause   q: quit";
    if (missing > 0) {
        line += "   " + std::to_string(missing) + " lines do not fit";
    }
    return line;
}

std::vector<std::string> daemonLines(const Watcher& watcher, const PageShape& shape) {
    std::vector<std::string> lines;
    lines.push_back(watcher.hasDaemon() ? headline(watcher.name(), watcher.daemon())
                                        : watcher.name() + ": not there yet");
    lines.push_back(watcher.note());
    if (watcher.hasDaemon()) {
        for (const TextRow& row : daemonRows(watcher.daemon(), watcher.owner(), shape.utcOffsetS)) {
            lines.push_back(labelled(row.label, row.text));
        }
    }
    return lines;
}

/** One part below the other, apart where there is room for that. */
std::vector<std::string> stacked(const std::vector<std::vector<std::string>>& parts,
                                 std::size_t room) {
    std::size_t needed = parts.size() - 1;
    for (const std::vector<std::string>& part : parts) {
        needed += part.size();
    }
    std::vector<std::string> lines;
    for (const std::vector<std::string>& part : parts) {
        if (!lines.empty() && needed <= room) {
            lines.emplace_back();
        }
        lines.insert(lines.end(), part.begin(), part.end());
    }
    return lines;
}

}  // namespace

std::vector<std::string> counterLines(const std::vector<std::string>& cells, std::size_t columns) {
    constexpr const char* kGap = "   ";
    std::vector<std::string> lines;
    for (const std::string& cell : cells) {
        const bool fits = !lines.empty() && lines.back().size() + cell.size() + 3 <= columns;
        if (fits) {
            lines.back() += kGap + cell;
        } else {
            lines.push_back(cell);
        }
    }
    return lines;
}

std::vector<std::string> pageLines(const Watcher& watcher, const PageShape& shape) {
    std::vector<std::vector<std::string>> parts = {daemonLines(watcher, shape)};
    if (watcher.hasDaemon()) {
        parts.push_back(sparklines(watcher, shape));
        parts.push_back(counterLines(counterCells(watcher), shape.columns));
    }
    const std::size_t room = shape.rows > 1 ? shape.rows - 1 : shape.rows;
    std::vector<std::string> lines = stacked(parts, room);
    const std::size_t missing = lines.size() - std::min(lines.size(), room);
    lines.resize(std::min(lines.size(), room));
    if (shape.rows > 1) {
        lines.resize(room);
        lines.push_back(helpLine(shape, missing));
    }
    for (std::string& line : lines) {
        line = cutTo(line, shape.columns);
    }
    return lines;
}

}  // namespace tsyn
