#include "tools/tsyn/daemon/SpySource.h"

#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tsyn {
namespace {

constexpr const char* kSpyPort = "319";
constexpr long kMostPort = 65535;
constexpr char kQuestion[] = "tsyn";
/** It sends every 525 ms; after this long it has another to answer, or was started anew. */
constexpr double kSilenceS = 2.0;

bool isOwnAddress(sockaddr_in address) {
    // Only an address of this host can be bound.
    const tools::OwnDescriptor trial(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    address.sin_port = 0;
    return bind(trial.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
}

std::string shortSeconds(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", seconds);
    return text;
}

}  // namespace

std::optional<SpyAddress> spyAddress(const std::string& text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos) {
        return text.empty() ? std::nullopt : std::optional(SpyAddress{text, kSpyPort});
    }
    SpyAddress address{text.substr(0, colon), text.substr(colon + 1)};
    const bool isNumber = !address.port.empty() && address.port.size() <= 5 &&
                          std::all_of(address.port.begin(), address.port.end(),
                                      [](char c) { return c >= '0' && c <= '9'; });
    const long port = isNumber ? std::strtol(address.port.c_str(), nullptr, 10) : 0;
    if (address.host.empty() || port < 1 || port > kMostPort) {
        return {};
    }
    return address;
}

bool SpySource::connect() {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    const int result = getaddrinfo(address_.host.c_str(), address_.port.c_str(), &hints, &found);
    if (result != 0) {
        failed("--spy " + name() + ": the host is not known (" + gai_strerror(result) +
               "); give its IPv4 address");
        return false;
    }
    sockaddr_in address{};
    std::memcpy(&address, found->ai_addr, sizeof address);
    freeaddrinfo(found);
    socket_.reset(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket_.isOpen() ||
        ::connect(socket_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        failed("--spy " + name() + ": cannot be reached (" + std::strerror(errno) + ")");
        socket_.reset();
        return false;
    }
    isOwnHost_ = isOwnAddress(address);
    return true;
}

bool SpySource::ask() {
    if (!socket_.isOpen() && !connect()) {
        return false;
    }
    // An earlier answer that the port is closed is reported by the next call, whichever it is.
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (send(socket_.get(), kQuestion, sizeof kQuestion, 0) >= 0) {
            heardS_ = monotonicNowS();
            firstAskedS_ = isAsked_ ? firstAskedS_ : heardS_;
            isAsked_ = true;
            return true;
        }
    }
    failed("--spy " + name() + ": cannot be asked (" + std::strerror(errno) + ")");
    return false;
}

std::optional<Look> SpySource::noAnswer(const std::string& reason) {
    return failed("--spy " + name() + ": " + reason +
                  "; the daemon's host must run the spy provider, as 'tsyn run --spy' does");
}

/** Whether a datagram came; of several, the latest is kept. */
bool SpySource::receive(Datagram& datagram) {
    bool isReceived = false;
    for (;;) {
        Datagram next;
        const ssize_t length =
            recv(socket_.get(), next.bytes.data(), next.bytes.size(), MSG_DONTWAIT);
        if (length < 0) {
            return isReceived;
        }
        next.length = static_cast<std::size_t>(length);
        datagram = next;
        isReceived = true;
    }
}

/** It sends by itself once it was asked, until another asks. */
std::optional<Look> SpySource::look(double withinS) {
    if ((!isAsked_ || monotonicNowS() - heardS_ > kSilenceS) && !ask()) {
        return {};
    }
    pollfd readable{socket_.get(), POLLIN, 0};
    poll(&readable, 1, static_cast<int>(withinS * 1000.0));
    Datagram datagram;
    if (!receive(datagram)) {
        if (errno != EAGAIN) {
            isAsked_ = false;
            return noAnswer(errno == ECONNREFUSED ? "nobody listens there" : std::strerror(errno));
        }
        return noAnswer("no answer for " + shortSeconds(monotonicNowS() - firstAskedS_) + " s");
    }
    heardS_ = monotonicNowS();
    firstAskedS_ = heardS_;
    gPtpTimeDataStruct record{};
    if (datagram.length == sizeof record) {
        std::memcpy(&record, datagram.bytes.data(), sizeof record);
    }
    if (datagram.length != sizeof record || !isTimeRecord(record)) {
        return failed("--spy " + name() +
                      ": what answers sends no time record; name the port of a spy provider");
    }
    return lookNow(record);
}

}  // namespace tsyn
