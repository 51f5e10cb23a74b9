#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <stdexcept>

#include "tools/common/OwnDescriptor.h"
#include "tools/simulate/flood/FloodFrame.h"

/** Sends PTP frames that nobody asked for, as fast as told, and ends. */

namespace {

struct Options {
    std::string interfaceName;
    std::string kind = "malformed";
    double framesPerSecond = 10'000.0;
    double seconds = 10.0;
    std::uint64_t seed = 1;
};

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

ifreq requestFor(const std::string& interfaceName) {
    ifreq request{};
    interfaceName.copy(request.ifr_name, sizeof request.ifr_name - 1);
    return request;
}

simulate::MacAddress addressOf(int fd, const std::string& interfaceName) {
    ifreq request = requestFor(interfaceName);
    if (ioctl(fd, SIOCGIFHWADDR, &request) != 0) {
        fail(interfaceName + ": its address cannot be read");
    }
    simulate::MacAddress address{};
    std::memcpy(address.data(), request.ifr_hwaddr.sa_data, address.size());
    return address;
}

void bindTo(int fd, const std::string& interfaceName) {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_ifindex = static_cast<int>(if_nametoindex(interfaceName.c_str()));
    if (address.sll_ifindex == 0 ||
        bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        fail(interfaceName + ": nothing can be sent");
    }
}

/** Instants are counted from the beginning, so that a late frame does not delay all others. */
void awaitFrame(const timespec& begin, double afterS) {
    const auto ns = static_cast<long long>(afterS * 1e9) + begin.tv_nsec;
    timespec due{};
    due.tv_sec = begin.tv_sec + static_cast<time_t>(ns / 1'000'000'000);
    due.tv_nsec = static_cast<long>(ns % 1'000'000'000);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due, nullptr) == EINTR) {
    }
}

void flood(const Options& options) {
    // Protocol 0: what arrives does not concern it.
    const tools::OwnDescriptor fd(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0));
    if (!fd.isOpen()) {
        fail("no raw socket");
    }
    const simulate::MacAddress source = addressOf(fd.get(), options.interfaceName);
    bindTo(fd.get(), options.interfaceName);
    std::mt19937_64 random(options.seed);
    timespec begin{};
    clock_gettime(CLOCK_MONOTONIC, &begin);
    const auto frames = static_cast<std::uint32_t>(options.framesPerSecond * options.seconds);
    std::uint32_t sent = 0;
    for (std::uint32_t number = 0; number < frames; ++number) {
        awaitFrame(begin, number / options.framesPerSecond);
        const auto frame = simulate::floodFrame(options.kind, source, number, random);
        if (send(fd.get(), frame.data(), frame.size(), 0) == static_cast<ssize_t>(frame.size())) {
            ++sent;
        }
    }
    std::printf("%u of %u frames sent\n", sent, frames);
}

void addOptions(CLI::App& app, Options& options) {
    app.add_option("interface", options.interfaceName)->required();
    app.add_option("--kind", options.kind, "what is sent")
        ->check(CLI::IsMember(simulate::kFloodKinds))
        ->capture_default_str();
    app.add_option("--rate", options.framesPerSecond, "frames a second")
        ->check(CLI::Range(0.001, 1e6))
        ->capture_default_str();
    app.add_option("--for", options.seconds, "seconds")
        ->check(CLI::Range(0.0, 4000.0))
        ->capture_default_str();
    app.add_option("--seed", options.seed, "of random bytes")->capture_default_str();
}

}  // namespace

int main(int argc, char** argv) {
    try {
        CLI::App app("Sends PTP frames that nobody asked for", "flood");
        Options options;
        addOptions(app, options);
        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            return app.exit(error);
        }
        flood(options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "flood: %s\n", error.what());
        return 1;
    }
    return 0;
}
