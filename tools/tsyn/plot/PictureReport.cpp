#include "tools/tsyn/plot/PictureReport.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sstream>

namespace tsyn {
namespace {

constexpr int kWidth = 1400;
constexpr int kChartHeight = 230;
constexpr int kBottomHeight = 350;
constexpr int kTitleHeight = 40;
constexpr int kLineHeight = 18;
/** Of a line of figures, as wide as the picture allows. */
constexpr std::size_t kLineLetters = 180;
constexpr std::array<const char*, 6> kColours = {"#2563eb", "#c2410c", "#047857",
                                                 "#7c3aed", "#be185d", "#4d7c0f"};
/** In the order of RecordedState. */
constexpr std::array<const char*, kRecordedStates> kStateColours = {
    "#9ca3af", "#eab308", "#16a34a", "#f97316", "#dc2626", "#f97316", "#16a34a"};

/** As a text of gnuplot's, which a quote of the text must not end. */
std::string quoted(const std::string& text) {
    std::string result = "'";
    for (const char letter : text) {
        const bool isPlain = letter != '\'' && letter != '\n' && letter != '\r';
        result += isPlain ? letter : ' ';
    }
    return result + "'";
}

/** The figures one after the other, broken where a line would be too long for the picture. */
std::vector<std::string> linesOf(const std::vector<std::pair<std::string, std::string>>& figures) {
    std::vector<std::string> lines;
    for (const auto& [name, value] : figures) {
        std::string figure = name;
        figure.append(" ").append(value);
        if (lines.empty() || lines.back().size() + figure.size() > kLineLetters) {
            lines.push_back(figure);
        } else {
            lines.back().append("   ").append(figure);
        }
    }
    return lines;
}

const char* colourOf(std::size_t number) {
    return kColours.at(number % kColours.size());
}

class Script {
public:
    explicit Script(const Report& report) : report_(report) { text_.precision(12); }

    std::string make();

private:
    void head();
    void figures(const std::vector<std::string>& lines);
    void place(int top, int height, double left, double width);
    void states();
    void chart(const Chart& chart, bool isLast);
    void histograms();
    void deviations(const std::vector<DeviationCurve>& curves, const char* title, const char* unit);
    std::string data(const Series& series);
    std::string next() { return "$d" + std::to_string(blocks_++); }

    const Report& report_;
    std::ostringstream text_;
    int titleHeight_ = kTitleHeight;
    int height_ = 0;
    int blocks_ = 0;
};

std::string Script::data(const Series& series) {
    std::string name = next();
    text_ << name << " << EOD\n";
    for (std::size_t i = 0; i < series.atS.size(); ++i) {
        // An empty line parts what is not joined.
        if (std::isnan(series.values[i])) {
            text_ << '\n';
        } else {
            text_ << series.atS[i] << ' ' << series.values[i] << '\n';
        }
    }
    text_ << "EOD\n";
    return name;
}

void Script::head() {
    const auto charts = static_cast<int>(report_.charts.size());
    const std::vector<std::string> lines = linesOf(report_.figures);
    titleHeight_ = kTitleHeight + static_cast<int>(lines.size()) * kLineHeight;
    height_ = titleHeight_ + charts * kChartHeight + kBottomHeight;
    text_ << "set terminal pngcairo size " << kWidth << ',' << height_
          << " font 'DejaVu Sans,10' background '#ffffff'\nset encoding utf8\n"
          << "set termoption noenhanced\nset multiplot title " << quoted("time of " + report_.title)
          << " font ',13'\nset grid lc rgb '#e5e7eb'\nset border 3 lc rgb '#6b7280'\n"
          << "set tics nomirror out\nset key above right samplen 2 horizontal\n"
          << "set lmargin 12\nset rmargin 3\n";
    figures(lines);
}

/** Belong to the first chart for gnuplot, which draws labels with a chart only. */
void Script::figures(const std::vector<std::string>& lines) {
    int top = kTitleHeight;
    for (const std::string& line : lines) {
        text_ << "set label " << quoted(line) << " at screen 0.5, screen "
              << 1.0 - double(top) / height_ << " center\n";
        top += kLineHeight;
    }
}

void Script::place(int top, int height, double left, double width) {
    text_ << "set origin " << left << ',' << 1.0 - double(top + height) / height_ << "\nset size "
          << width << ',' << double(height) / height_ << '\n';
}

/** Along the upper edge of the first chart. */
void Script::states() {
    for (const std::vector<StateBand>& bands : report_.states) {
        for (const StateBand& band : bands) {
            text_ << "set object rectangle from first " << band.fromS << ", graph 0.96 to first "
                  << band.toS << ", graph 1 fc rgb '"
                  << kStateColours.at(static_cast<std::size_t>(band.state))
                  << "' fs solid 1.0 noborder\n";
        }
    }
}

void Script::chart(const Chart& chart, bool isLast) {
    std::string plot;
    std::size_t number = 0;
    for (const Curve& curve : chart.curves) {
        const std::string name = data(curve.series);
        const char* const colour = colourOf(number);
        const std::string title = " title " + quoted(curve.series.name);
        plot += plot.empty() ? "plot " : ", ";
        plot.append(name);
        if (curve.drawn == Drawn::kBand) {
            plot.append(" using 1:(-$2):2 with filledcurves fs transparent solid 0.15 lc rgb '");
            plot.append(colour);
        } else if (curve.drawn == Drawn::kAlert) {
            plot.append(" with points pt 7 ps 0.5 lc rgb '#dc2626");
        } else {
            plot.append(" with lines lw 1 lc rgb '").append(colour);
        }
        plot.append("'").append(title);
        ++number;
    }
    text_ << "set xrange [" << report_.beginS << ':' << report_.endS << "]\nset title "
          << quoted(chart.title) << "\nset ylabel " << quoted(chart.unit) << "\nset xlabel "
          << quoted(isLast ? "seconds since the beginning" : "") << "\nset offsets 0,0,graph 0.1,"
          << "graph 0.1\n"
          << plot << "\nunset object\nunset label\n";
}

void Script::histograms() {
    if (report_.histograms.empty()) {
        return;
    }
    std::string plot;
    for (const Histogram& histogram : report_.histograms) {
        const std::string name = next();
        text_ << name << " << EOD\n";
        for (std::size_t bin = 0; bin < histogram.counts.size(); ++bin) {
            text_ << histogram.fromNs + (double(bin) + 0.5) * histogram.binNs << ' '
                  << histogram.counts[bin] << '\n';
        }
        text_ << "EOD\n";
        plot += (plot.empty() ? "plot " : ", ") + name + " with boxes fs solid 0.6 lc rgb '" +
                colourOf(histogram.source) + "' title " +
                quoted(histogram.name + ", " + std::to_string(histogram.beyond) + " beyond");
    }
    text_ << "set autoscale x\nset yrange [0:*]\nset xlabel 'ns'\nset ylabel 'samples'\n"
          << plot << "\nset autoscale y\n";
}

void Script::deviations(const std::vector<DeviationCurve>& curves, const char* title,
                        const char* unit) {
    std::string plot;
    for (const DeviationCurve& curve : curves) {
        if (curve.points.empty()) {
            continue;
        }
        const std::string name = next();
        text_ << name << " << EOD\n";
        for (const Deviation& point : curve.points) {
            text_ << point.tauS << ' ' << point.value << '\n';
        }
        text_ << "EOD\n";
        plot += (plot.empty() ? "plot " : ", ") + name + " with linespoints pt 7 ps 0.7 lc rgb '" +
                colourOf(curve.source) + "' title " + quoted(curve.name);
    }
    if (!plot.empty()) {
        text_ << "set logscale xy\nset format y '%.0e'\nset autoscale x\nset xlabel "
              << "'averaging time (s)'\nset ylabel '" << title << unit << "'\n"
              << plot << "\nunset logscale\nset format y\n";
    }
}

std::string Script::make() {
    head();
    int top = titleHeight_;
    for (const Chart& each : report_.charts) {
        place(top, kChartHeight, 0.0, 1.0);
        if (&each == &report_.charts.front()) {
            states();
        }
        chart(each, &each == &report_.charts.back());
        top += kChartHeight;
    }
    text_ << "set offsets\nset title\n";
    const double third = 1.0 / 3.0;
    place(top, kBottomHeight, 0.0, third);
    histograms();
    place(top, kBottomHeight, third, third);
    deviations(report_.allan, "Allan deviation", "");
    place(top, kBottomHeight, 2.0 * third, third);
    deviations(report_.time, "time deviation", " (ns)");
    text_ << "unset multiplot\n";
    return text_.str();
}

using OwnFile = std::unique_ptr<FILE, int (*)(FILE*)>;

/** gnuplot's last line of complaint. */
std::string lastLine(FILE* errors) {
    std::string last;
    char line[256];
    std::rewind(errors);
    while (std::fgets(line, sizeof line, errors) != nullptr) {
        const std::string text(line, std::strcspn(line, "\n"));
        last = text.find_first_not_of(" ^") == std::string::npos ? last : text;
    }
    return last;
}

/** Returns what a spawn tells, and the child's status. */
int runGnuplot(FILE* script, int fd, FILE* errors, int& status) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fileno(script), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, fd, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, fileno(errors), STDERR_FILENO);
    char name[] = "gnuplot";
    char* const words[] = {name, nullptr};
    pid_t child = 0;
    const int trouble = posix_spawnp(&child, name, &actions, nullptr, words, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (trouble == 0) {
        waitpid(child, &status, 0);
    }
    return trouble;
}

}  // namespace

std::string pictureScript(const Report& report) {
    return Script(report).make();
}

std::string drawPicture(const Report& report, int fd) {
    const OwnFile script(std::tmpfile(), std::fclose);
    const OwnFile errors(std::tmpfile(), std::fclose);
    if (!script || !errors) {
        return std::string("no temporary file can be made (") + std::strerror(errno) +
               "); set TMPDIR to a folder that can be written";
    }
    const std::string text = pictureScript(report);
    const bool isWritten = std::fwrite(text.data(), 1, text.size(), script.get()) == text.size() &&
                           std::fflush(script.get()) == 0;
    std::rewind(script.get());
    int status = 0;
    const int trouble = isWritten ? runGnuplot(script.get(), fd, errors.get(), status) : errno;
    if (trouble == ENOENT) {
        return "gnuplot, which draws pictures, is not installed; install gnuplot-nox, or name a "
               "file that ends in .html";
    }
    if (trouble != 0 || status != 0 || lseek(fd, 0, SEEK_END) == 0) {
        const std::string why = trouble != 0 ? std::strerror(trouble) : lastLine(errors.get());
        return "gnuplot failed (" + why + ")";
    }
    return {};
}

}  // namespace tsyn
