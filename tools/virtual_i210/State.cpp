#include "tools/virtual_i210/State.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tools/common/OwnDescriptor.h"
#include "tools/virtual_i210/Capture.h"
#include "tools/virtual_i210/simulated/Random.h"

namespace virtual_i210 {

namespace {

using tools::OwnDescriptor;

constexpr std::uint64_t kMagic = 0x7669323130636172u;
constexpr std::uint32_t kLayoutVersion = 2;

std::uint64_t hashText(const std::string& text) {
    std::uint64_t hash = 0;
    for (const char c : text) {
        hash = mixBits(hash ^ static_cast<unsigned char>(c));
    }
    return hash;
}

[[noreturn]] void fail(const std::string& path, const char* action) {
    throw ConfigError(std::string(kConfigVariable) + ": cannot " + action + " the state file '" +
                      path + "': " + std::strerror(errno) +
                      "; choose a writable path with state=/dev/shm/NAME");
}

SharedState& mapDescriptor(const OwnDescriptor& descriptor, const std::string& path) {
    void* memory =
        mmap(nullptr, sizeof(SharedState), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor.get(), 0);
    if (memory == MAP_FAILED) {
        fail(path, "map");
    }
    return *static_cast<SharedState*>(memory);
}

void initialiseCard(CardState& card, const CardConfig& config, std::uint64_t seed,
                    std::uint64_t epochNs, std::uint64_t rawNs) {
    config.ifName.copy(card.ifName, sizeof card.ifName - 1);
    card.phcIndex = config.phcIndex;
    card.granularityNs = config.granularityNs;
    card.cableNs = config.cableNs;
    card.jitterNs = config.jitterNs;
    card.readNs = config.readNs;
    card.readJitterNs = config.readJitterNs;
    card.seed = seed;
    card.wanderPpt = config.wanderPpt;
    card.ownRatePpt = config.ratePpt;
    card.offsetNs = config.offsetNs;
    card.net = hashText(config.net);
    ClockLine rates;
    rates.ownRatePpt = config.ratePpt;
    const auto phcNs = static_cast<std::int64_t>(epochNs) + config.offsetNs;
    card.clock.initialise(startAt(phcNs, rates, card.wander(), rawNs));
}

/** Without an epoch, clocks begin at the system time; a simulated run, which is the same whenever
 * it is run, in 2026. */
std::uint64_t epochOf(const Config& config) {
    constexpr std::uint64_t kSimulatedEpochNs = 1'767'225'600'000'000'000;
    return config.epochNs     ? *config.epochNs
           : config.simulated ? kSimulatedEpochNs
                              : static_cast<std::uint64_t>(realtimeNowNs());
}

/** The memory is fresh from ftruncate: all atomics begin as zero. */
void initialise(SharedState& state, const Config& config) {
    state.magic = kMagic;
    state.version = kLayoutVersion;
    state.cardCount = static_cast<std::uint32_t>(config.cards.size());
    state.size = sizeof(SharedState);
    state.configHash = hashText(config.text);
    const std::uint64_t epochNs = epochOf(config);
    if (config.simulated) {
        state.conductor.initialise(config.seed, config.costs, epochNs);
    }
    const std::uint64_t rawNs = config.simulated ? kFirstInstantNs : rawNowNs();
    for (std::size_t i = 0; i < config.cards.size(); ++i) {
        initialiseCard(state.cards[i], config.cards[i],
                       seededRandom(config.seed, RandomStream::kCardSeed, i), epochNs, rawNs);
    }
    if (!config.capturePath.empty()) {
        config.capturePath.copy(state.capturePath, sizeof state.capturePath - 1);
        createCapture(state);
    }
}

/** The file appears under its name only when it is complete; false when another process won. */
bool createState(const Config& config) {
    std::string temporary = config.statePath + ".XXXXXX";
    const OwnDescriptor descriptor(mkostemp(temporary.data(), O_CLOEXEC));
    if (!descriptor.isOpen()) {
        fail(config.statePath, "create");
    }
    bool created = false;
    if (ftruncate(descriptor.get(), sizeof(SharedState)) == 0 &&
        fchmod(descriptor.get(), 0666) == 0) {
        SharedState& state = mapDescriptor(descriptor, config.statePath);
        initialise(state, config);
        munmap(&state, sizeof state);
        created = link(temporary.c_str(), config.statePath.c_str()) == 0;
    }
    const int reason = errno;
    unlink(temporary.c_str());
    if (!created && reason != EEXIST) {
        errno = reason;
        fail(config.statePath, "create");
    }
    return created;
}

SharedState& openState(const OwnDescriptor& descriptor, const Config& config) {
    struct stat status {};
    if (fstat(descriptor.get(), &status) != 0) {
        fail(config.statePath, "examine");
    }
    if (status.st_size == static_cast<off_t>(sizeof(SharedState))) {
        SharedState& state = mapDescriptor(descriptor, config.statePath);
        if (state.magic == kMagic && state.version == kLayoutVersion &&
            state.size == sizeof(SharedState) && state.configHash == hashText(config.text)) {
            return state;
        }
        munmap(&state, sizeof state);
    }
    throw ConfigError(std::string(kConfigVariable) + ": the state file '" + config.statePath +
                      "' belongs to other settings; remove it, or use the settings it was made "
                      "with, or name another with state=/dev/shm/NAME");
}

}  // namespace

std::int64_t CardState::phcNs(std::uint64_t rawNs) const {
    return evaluate(clock.lineAt(rawNs), wander(), rawNs).ns;
}

std::int64_t CardState::shownPhcNs(std::uint64_t rawNs) const {
    const std::int64_t ns = phcNs(rawNs);
    const std::int64_t above = ns % static_cast<std::int64_t>(granularityNs);
    return ns - (above < 0 ? above + static_cast<std::int64_t>(granularityNs) : above);
}

void CardState::setPhc(std::int64_t phcNs) {
    clock.update([&](const ClockLine& line) { return startAt(phcNs, line, wander(), rawNowNs()); });
}

void CardState::stepPhc(std::int64_t deltaNs) {
    clock.update([&](const ClockLine& line) {
        ClockLine next =
            rebase(line, wander(), rawNowNs(), line.ownRatePpt, line.adjustmentScaledPpm);
        next.basePhcNs += deltaNs;
        return next;
    });
}

void CardState::adjust(std::int64_t scaledPpm) {
    clock.update([&](const ClockLine& line) {
        return rebase(line, wander(), rawNowNs(), line.ownRatePpt, scaledPpm);
    });
}

void CardState::setOwnRate(std::int64_t ratePpt) {
    clock.update([&](const ClockLine& line) {
        return rebase(line, wander(), rawNowNs(), ratePpt, line.adjustmentScaledPpm);
    });
}

CardState* SharedState::findCard(const char* ifName) {
    for (std::uint32_t i = 0; i < cardCount; ++i) {
        if (std::strncmp(cards[i].ifName, ifName, sizeof cards[i].ifName) == 0) {
            return &cards[i];
        }
    }
    return nullptr;
}

CardState* SharedState::findPhc(std::int32_t phcIndex) {
    for (std::uint32_t i = 0; i < cardCount; ++i) {
        if (cards[i].phcIndex == phcIndex) {
            return &cards[i];
        }
    }
    return nullptr;
}

const CardState* SharedState::peerOf(const CardState& card) const {
    return cardCount == 2 ? &cards[1 - indexOf(card)] : nullptr;
}

SharedState& mapState(const Config& config) {
    for (;;) {
        const OwnDescriptor descriptor(open(config.statePath.c_str(), O_RDWR | O_CLOEXEC));
        if (descriptor.isOpen()) {
            return openState(descriptor, config);
        }
        if (errno != ENOENT) {
            fail(config.statePath, "open");
        }
        createState(config);
    }
}

}  // namespace virtual_i210
