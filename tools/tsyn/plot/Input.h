#pragma once

#include <string>
#include <vector>

#include "tools/tsyn/record/Recording.h"

namespace tsyn {

/** A restart or a gap that a recording tells of. */
struct RecordedEvent {
    long long systemNs = 0;
    std::string kind;
    std::string text;
};

/** A line of the samples of `tsyn run --samples`. */
struct TrueSample {
    double atS = 0.0;
    double errorNs = 0.0;
    bool isValid = false;
    bool hasBounds = false;
    double outsideNs = 0.0;  ///< how far the truth lies outside the bounds
    double widthNs = 0.0;    ///< of the bounds
};

/** What is drawn in one colour: recordings of one interface, or one file of samples. */
struct PlotSource {
    std::string name;
    std::vector<RecordedSample> samples;
    std::vector<RecordedEvent> events;
    std::vector<TrueSample> truth;
};

struct PlotInput {
    std::vector<PlotSource> sources;
    std::vector<std::string> files;    ///< what each file is, one line each
    std::vector<std::string> damages;  ///< what was cut or left out, one line each
};

/** Adds a file as a source. Returns what went wrong in one line, empty on success. */
std::string addFile(PlotInput& input, const std::string& path);

/** Joins the recordings of each interface in the order in which they began. */
void joinSources(PlotInput& input);

}  // namespace tsyn
