#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

namespace tsyn {

/** Compares the daemon's time with the true PHC time of a virtual i210 and writes one CSV line a
 *  comparison: t_s, error_ns (daemon minus truth), bracket_ns (width of the interval of raw
 *  monotonic time in which the daemon was asked), valid (1 from the first real rate ratio on). */
class TruthSampler {
public:
    explicit TruthSampler(std::string cardName) : cardName_(std::move(cardName)) {}

    /** Finds the card, which the preloaded library of the virtual i210 knows. Returns what went
     *  wrong, empty on success; to be called before the others. */
    std::string findCard();

    /** Creates the CSV file. Returns what went wrong, empty on success. withBounds: the daemon
     * tells bounds, so each line also has outside_ns (how far the truth lies outside them) and
     * width_ns, and is valid only while they hold. */
    std::string open(const std::string& path, bool withBounds);

    /** Compares once; a daemon that gives no time yet is not sampled. */
    void sample(double nowS, bool valid);

    /** Why samples are missing in the file, empty while all were written. */
    std::string writeProblem() const;

    /** Writes what is still in memory, and tells as writeProblem does. */
    std::string finish();

    /** Of the latest valid sample. */
    std::optional<long long> lastErrorNs() const { return lastErrorNs_; }
    unsigned long count() const { return count_; }

private:
    struct Comparison {
        long long errorNs = 0;
        std::uint64_t bracketNs = 0;
    };
    struct Bounds {
        long long outsideNs = 0;
        long long widthNs = 0;
    };
    std::optional<Bounds> compareBounds() const;
    std::optional<Comparison> compareOnce() const;
    std::optional<Comparison> compareNarrowly() const;
    std::optional<Comparison> compare() const;
    std::optional<std::uint64_t> trueTimeNs(std::uint64_t rawNs) const;

    std::string cardName_;
    std::string path_;
    int (*trueTime_)(const char*, std::uint64_t, std::uint64_t*) = nullptr;
    std::unique_ptr<FILE, int (*)(FILE*)> file_{nullptr, std::fclose};
    std::optional<long long> lastErrorNs_;
    unsigned long count_ = 0;
    bool withBounds_ = false;
};

}  // namespace tsyn
