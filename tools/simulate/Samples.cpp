#include "tools/simulate/Samples.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>

namespace simulate {
namespace {

/** One line; false for the heading and for a line that is torn. */
bool parseSample(const char* text, Sample& sample) {
    char* end = nullptr;
    sample.atS = std::strtod(text, &end);
    if (end == text || *end != ',') {
        return false;
    }
    sample.errorNs = std::strtoll(end + 1, &end, 10);
    if (*end != ',') {
        return false;
    }
    sample.bracketNs = static_cast<std::uint32_t>(std::strtoul(end + 1, &end, 10));
    if (*end != ',' || end[1] == '\0') {
        return false;
    }
    sample.valid = end[1] == '1';
    if (end[2] == ',') {
        Sample::Bounds bounds;
        bounds.outsideNs = std::strtoll(end + 3, &end, 10);
        if (*end != ',') {
            return false;
        }
        bounds.widthNs = std::strtoll(end + 1, &end, 10);
        sample.bounds = bounds;
    }
    return true;
}

}  // namespace

std::vector<Sample> readSamples(const std::string& file, double startS) {
    std::vector<Sample> samples;
    std::ifstream stream(file);
    std::string line;
    while (std::getline(stream, line) && !stream.eof()) {
        Sample sample;
        if (parseSample(line.c_str(), sample)) {
            sample.atS += startS;
            samples.push_back(sample);
        }
    }
    return samples;
}

void writeSamples(const std::string& file, const std::vector<Sample>& samples) {
    const std::unique_ptr<FILE, int (*)(FILE*)> stream(std::fopen(file.c_str(), "we"), std::fclose);
    const bool bounded = !samples.empty() && samples.back().bounds;
    const char* const heading = bounded ? "t_s,error_ns,bracket_ns,valid,outside_ns,width_ns\n"
                                        : "t_s,error_ns,bracket_ns,valid\n";
    bool good = stream != nullptr && std::fputs(heading, stream.get()) >= 0;
    for (const Sample& sample : samples) {
        good = good && std::fprintf(stream.get(), "%.6f,%" PRId64 ",%u,%d", sample.atS,
                                    sample.errorNs, sample.bracketNs, sample.valid ? 1 : 0) > 0;
        if (good && sample.bounds) {
            good = std::fprintf(stream.get(), ",%" PRId64 ",%" PRId64, sample.bounds->outsideNs,
                                sample.bounds->widthNs) > 0;
        }
        good = good && std::fputc('\n', stream.get()) >= 0;
    }
    if (!good || std::fflush(stream.get()) != 0) {
        throw std::runtime_error(file + ": cannot be written: " + std::strerror(errno));
    }
}

}  // namespace simulate
