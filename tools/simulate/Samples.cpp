#include "tools/simulate/Samples.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>

namespace simulate {

std::vector<Sample> readSamples(const std::string& file, double startS) {
    std::vector<Sample> samples;
    std::ifstream stream(file);
    std::string line;
    while (std::getline(stream, line) && !stream.eof()) {
        Sample sample;
        long long error = 0;
        unsigned bracket = 0;
        int valid = 0;
        // The heading has no numbers.
        if (std::sscanf(line.c_str(), "%lf,%lld,%u,%d", &sample.atS, &error, &bracket, &valid) ==
            4) {
            sample.atS += startS;
            sample.errorNs = error;
            sample.bracketNs = bracket;
            sample.valid = valid != 0;
            samples.push_back(sample);
        }
    }
    return samples;
}

void writeSamples(const std::string& file, const std::vector<Sample>& samples) {
    const std::unique_ptr<FILE, int (*)(FILE*)> stream(std::fopen(file.c_str(), "we"), std::fclose);
    bool good =
        stream != nullptr && std::fputs("t_s,error_ns,bracket_ns,valid\n", stream.get()) >= 0;
    for (const Sample& sample : samples) {
        good = good && std::fprintf(stream.get(), "%.6f,%" PRId64 ",%u,%d\n", sample.atS,
                                    sample.errorNs, sample.bracketNs, sample.valid ? 1 : 0) > 0;
    }
    if (!good || std::fflush(stream.get()) != 0) {
        throw std::runtime_error(file + ": cannot be written: " + std::strerror(errno));
    }
}

}  // namespace simulate
