#include "tools/simulate/Picture.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <memory>
#include <set>
#include <sstream>

#include "tools/simulate/Statistics.h"
#include "tools/simulate/Timeline.h"
#include "tools/simulate/Units.h"

namespace simulate {
namespace {

/** More names than this would hide what is drawn. */
constexpr std::size_t kMostNamed = 8;
constexpr std::size_t kMostMarks = 40;
constexpr std::size_t kColumns = 1400;

struct Drawn {
    std::string name;
    std::vector<Timed> errors;
};

std::vector<Drawn> drawnOf(const RunRecord& record) {
    const double durationS = secondsOf(record.scenario->durationNs);
    std::vector<Drawn> result;
    for (const NodeResult& node : record.results) {
        Drawn drawn{node.name, {}};
        for (const Sample& sample : node.samples) {
            if (sample.valid && sample.atS <= durationS) {
                drawn.errors.push_back({sample.atS, static_cast<double>(sample.errorNs)});
            }
        }
        if (!drawn.errors.empty()) {
            result.push_back(std::move(drawn));
        }
    }
    return result;
}

/** How far errors go: at the most, and as a rule. */
struct Reach {
    double leastNs = 0.0;
    double mostNs = 0.0;
    double usualNs = 0.0;
};

Reach reachOf(const std::vector<Drawn>& drawn) {
    constexpr double kLongTail = 20.0;
    constexpr double kStepNs = 50.0;
    Reach reach;
    for (const Drawn& node : drawn) {
        const Statistics statistics = statisticsOf(node.errors);
        const double usual = std::min(statistics.p99, kLongTail * statistics.p50);
        reach.usualNs = std::max(reach.usualNs, usual);
        for (const Timed& error : node.errors) {
            reach.leastNs = std::min(reach.leastNs, error.value);
            reach.mostNs = std::max(reach.mostNs, error.value);
        }
    }
    reach.usualNs = kStepNs * std::ceil(1.3 * std::max(reach.usualNs, kStepNs) / kStepNs);
    return reach;
}

/** The least and the greatest value of each column of the picture; all where they are few. */
std::vector<Timed> thinned(const std::vector<Timed>& values, double durationS) {
    if (values.size() <= 4 * kColumns) {
        return values;
    }
    std::vector<Timed> result;
    for (std::size_t at = 0; at < values.size();) {
        const auto column = [&](const Timed& value) {
            return std::floor(value.atS * double(kColumns) / durationS);
        };
        const double here = column(values[at]);
        Timed least = values[at];
        Timed most = values[at];
        for (; at < values.size() && column(values[at]) == here; ++at) {
            least = values[at].value < least.value ? values[at] : least;
            most = values[at].value > most.value ? values[at] : most;
        }
        result.push_back(least);
        result.push_back(most);
    }
    return result;
}

void writePoints(std::ostringstream& script, const std::vector<Drawn>& drawn, double durationS) {
    for (std::size_t i = 0; i < drawn.size(); ++i) {
        script << "$errors" << i << " << EOD\n";
        for (const Timed& point : thinned(drawn[i].errors, durationS)) {
            script << numberText(point.atS) << ' ' << numberText(point.value) << '\n';
        }
        script << "EOD\n";
    }
}

/** Counted here: gnuplot would have to be given every sample. Says how many samples no bin has. */
std::string writeBins(std::ostringstream& script, const std::vector<Drawn>& drawn, double reachNs) {
    constexpr std::size_t kBins = 80;
    std::size_t samples = 0;
    std::size_t beyond = 0;
    std::array<std::size_t, kBins> bins{};
    const double width = 2 * reachNs / kBins;
    for (const Drawn& node : drawn) {
        for (const Timed& error : node.errors) {
            const double bin = std::floor((error.value + reachNs) / width);
            ++samples;
            if (bin >= 0 && bin < kBins) {
                ++bins[static_cast<std::size_t>(bin)];
            } else {
                ++beyond;
            }
        }
    }
    script << "$bins << EOD\n";
    for (std::size_t i = 0; i < kBins; ++i) {
        script << numberText(-reachNs + (double(i) + 0.5) * width) << ' ' << bins[i] << '\n';
    }
    script << "EOD\n";
    return beyond == 0
               ? ""
               : "; " + std::to_string(beyond) + " of " + std::to_string(samples) + " beyond";
}

/** A text as gnuplot reads it between single quotes. */
std::string quotable(const std::string& text) {
    std::string result;
    for (const char letter : text) {
        const bool control = std::iscntrl(static_cast<unsigned char>(letter)) != 0;
        result += letter == '\'' ? "''" : std::string(1, control ? ' ' : letter);
    }
    return result;
}

/** Its name, or else what it does and to whom. */
std::string labelOf(const Event& event) {
    if (!event.name.empty()) {
        return quotable(event.name);
    }
    const std::size_t others = event.nodes.size() - 1;
    return describe(event) + " " + event.nodes[0] +
           (others == 0 ? "" : " and " + std::to_string(others) + " more");
}

/** What the legend has to tell of. */
struct Marks {
    bool begins = false;
    bool ends = false;
    bool leftOut = false;
};

constexpr const char* kBeginColour = "#c03020";
constexpr const char* kEndColour = "#30a050";

Marks writeMarks(std::ostringstream& script, const Scenario& scenario) {
    Marks marks;
    std::set<std::uint64_t> marked;
    std::size_t label = 0;
    for (const Step& step : timelineOf(scenario)) {
        if (step.event == nullptr || marked.count(step.atNs) != 0) {
            continue;
        }
        if (marked.size() == kMostMarks) {
            marks.leftOut = true;
            break;
        }
        marked.insert(step.atNs);
        const bool begins = step.kind == Step::Kind::kEvent;
        (begins ? marks.begins : marks.ends) = true;
        const std::string at = numberText(secondsOf(step.atNs));
        script << "set arrow from " << at << ", graph 0 to " << at
               << ", graph 1 nohead dt 3 lc rgb '" << (begins ? kBeginColour : kEndColour) << "'\n";
        if (begins) {
            script << "set label '" << labelOf(*step.event) << "' at " << at << ", graph "
                   << 0.97 - 0.05 * double(label++ % 4) << " offset 0.4,0 font ',9'\n";
        }
    }
    return marks;
}

/** A fault's error may be a million times the usual one: then both are shown by an axis that is
 *  linear up to 100 ns and logarithmic beyond. */
void writeAxis(std::ostringstream& script, const Reach& reach) {
    constexpr double kMuch = 10.0;
    if (std::max(-reach.leastNs, reach.mostNs) < kMuch * reach.usualNs) {
        return;
    }
    script << "set nonlinear y via (y<0?-1:1)*log10(1+abs(y)/100.0) "
              "inverse (y<0?-1:1)*100.0*(10**abs(y)-1)\nset ytics ('0' 0";
    const std::array<const char*, 10> names{"100 ns", "1 us",   "10 us", "100 us", "1 ms",
                                            "10 ms",  "100 ms", "1 s",   "10 s",   "100 s"};
    double ns = 100.0;
    for (const char* name : names) {
        script << ", '" << name << "' " << numberText(ns) << ", '-" << name << "' "
               << numberText(-ns);
        ns *= 10.0;
    }
    script << ")\nset yrange [" << numberText(2.0 * std::min(reach.leastNs, -100.0)) << ":"
           << numberText(2.0 * std::max(reach.mostNs, 100.0)) << "]\n";
}

/** A line of the legend for what is no curve. */
void writeLegend(std::ostringstream& script, const char* colour, const std::string& text) {
    script << ", NaN with lines dt 3 lc rgb '" << colour << "' title '" << text << "'";
}

void writePlot(std::ostringstream& script, const std::vector<Drawn>& drawn, const Marks& marks) {
    script << "plot ";
    for (std::size_t i = 0; i < drawn.size(); ++i) {
        script << (i == 0 ? "" : ", ") << "$errors" << i << " with points pt 7 ps 0.35 ";
        if (drawn.size() <= kMostNamed) {
            script << "title '" << drawn[i].name << "'";
        } else {
            script << "notitle";
        }
    }
    const std::string which =
        marks.leftOut ? " (the first " + std::to_string(kMostMarks) + ")" : "";
    if (marks.begins) {
        writeLegend(script, kBeginColour, "event begins" + which);
    }
    if (marks.ends) {
        writeLegend(script, kEndColour, "event is taken back" + which);
    }
    script << '\n';
}

std::string titleOf(const RunRecord& record) {
    const RunSummary summary = summaryOf(record);
    return record.scenario->name + ", seed " + std::to_string(record.seed) + ", " +
           secondsText(record.scenario->durationNs) + ": " + summary.verdict + "; " + summary.node +
           " p50 " + numberText(summary.p50.value_or(0)) + ", p99 " +
           numberText(summary.p99.value_or(0)) + ", max " + numberText(summary.max.value_or(0)) +
           " ns";
}

}  // namespace

std::string pictureScript(const RunRecord& record, const std::string& pngFile) {
    const std::vector<Drawn> drawn = drawnOf(record);
    if (drawn.empty()) {
        return {};
    }
    const double durationS = secondsOf(record.scenario->durationNs);
    const Reach reach = reachOf(drawn);
    std::ostringstream script;
    writePoints(script, drawn, durationS);
    const std::string beyond = writeBins(script, drawn, reach.usualNs);
    script << "set terminal pngcairo size 1400,520 font 'DejaVu Sans,11' background '#ffffff'\n"
              "set termoption noenhanced\nset output '"
           << pngFile << "'\nset multiplot title '" << titleOf(record) << "' font ',13'\n"
           << "set grid lc rgb '#dddddd'\nset border 3\nset tics nomirror out\n"
              "set linetype 1 lc rgb '#3060a0'\nset key bottom right samplen 2\n"
              "set size 0.75,0.92\nset origin 0,0\n"
              "set xlabel 'time since the beginning of the run (s)'\nset ylabel 'error (ns)'\n"
           << "set xrange [0:" << numberText(durationS) << "]\n";
    writeAxis(script, reach);
    const Marks marks = writeMarks(script, *record.scenario);
    writePlot(script, drawn, marks);
    script << "unset arrow\nunset label\nunset nonlinear y\nset ytics auto\n"
              "set size 0.25,0.92\nset origin 0.75,0\n"
           << "set xrange [" << -reach.usualNs << ":" << reach.usualNs << "]\nset yrange [0:*]\n"
           << "set xlabel 'error (ns)" << beyond << "'\nset ylabel 'samples'\nset xtics "
           << reach.usualNs / 2
           << "\nset style fill solid 0.8\n"
              "plot $bins with boxes lc rgb '#3060a0' notitle\nunset multiplot\n";
    return script.str();
}

std::string draw(const std::string& script) {
    constexpr int kNoSuchProgram = 127;
    // A gnuplot that is not there must not end this program.
    std::signal(SIGPIPE, SIG_IGN);
    const std::unique_ptr<FILE, int (*)(FILE*)> gnuplot(
        popen("PATH=/usr/local/bin:/usr/bin:/bin gnuplot >/dev/null 2>&1", "we"),
        [](FILE*) { return 0; });
    if (!gnuplot) {
        return "no picture: gnuplot cannot be started";
    }
    const bool written =
        std::fwrite(script.data(), 1, script.size(), gnuplot.get()) == script.size();
    const int status = pclose(gnuplot.get());
    if (WEXITSTATUS(status) == kNoSuchProgram) {
        return "no picture: gnuplot is not installed; run scripts/install-packages demo";
    }
    return written && status == 0 ? "" : "no picture: gnuplot failed";
}

}  // namespace simulate
