#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>

#include "tools/common/OwnDescriptor.h"
#include "tools/tsyn/feed/SampleSink.h"

namespace tsyn {
namespace {

/** One datagram. Its timeval is that of the machine's word size, as chronyd's is. */
struct ChronySample {
    timeval systemTime;
    double offsetS; /**< true time less system time */
    int pulse;
    int leap;
    int padding;
    int magic;
};
constexpr int kMagic = 0x534f434b;
static_assert(sizeof(ChronySample) == sizeof(timeval) + 24, "without gaps");

ChronySample datagramOf(const ClockSample& sample) {
    constexpr long long kSecondNs = 1000000000;
    ChronySample datagram{};
    datagram.systemTime.tv_sec = static_cast<time_t>(sample.systemNs / kSecondNs);
    datagram.systemTime.tv_usec = static_cast<suseconds_t>(sample.systemNs % kSecondNs / 1000);
    datagram.offsetS = 1e-9 * static_cast<double>(sample.utcNs - sample.systemNs);
    datagram.magic = kMagic;
    return datagram;
}

class ChronySink : public SampleSink {
public:
    explicit ChronySink(std::string path) : path_(std::move(path)) {}

    std::string open() override;
    std::string deliver(const ClockSample& sample) override;
    std::string name() const override { return "chronyd at " + path_; }

private:
    std::string problem(int error) const;

    std::string path_;
    sockaddr_un address_{};
    tools::OwnDescriptor socket_;
};

std::string ChronySink::open() {
    address_.sun_family = AF_UNIX;
    if (path_.size() >= sizeof address_.sun_path) {
        return "--chrony " + path_ + ": too long; a socket's path has up to 107 characters";
    }
    std::memcpy(address_.sun_path, path_.c_str(), path_.size());
    struct stat file {};
    if (stat(path_.c_str(), &file) == 0 && !S_ISSOCK(file.st_mode)) {
        return "--chrony " + path_ + ": no socket; name the one of 'refclock SOCK' in chrony.conf";
    }
    constexpr int kKind = SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK;
    socket_.reset(socket(AF_UNIX, kKind, 0));
    const tools::OwnDescriptor trial(socket(AF_UNIX, kKind, 0));
    if (!socket_.isOpen() || !trial.isOpen()) {
        return "--chrony " + path_ + ": no socket to be had (" + std::strerror(errno) + ")";
    }
    // A socket of another kind stays one, unlike one that nobody reads yet.
    const bool isOther =
        connect(trial.get(), reinterpret_cast<const sockaddr*>(&address_), sizeof address_) != 0 &&
        errno == EPROTOTYPE;
    return isOther ? "--chrony " + problem(EPROTOTYPE) : "";
}

std::string ChronySink::problem(int error) const {
    switch (error) {
    case ENOENT:
        return path_ + " is not there; chronyd makes it for 'refclock SOCK' in chrony.conf";
    case ECONNREFUSED:
        return "nobody reads " + path_ + "; start chronyd";
    case EAGAIN:
        return "chronyd does not read " + path_;
    case EPROTOTYPE:
        return path_ + " is another program's; name the one of 'refclock SOCK' in chrony.conf";
    default:
        return path_ + " cannot be written to (" + std::strerror(error) + ")";
    }
}

/** To the path each time, so that a socket that chronyd made anew is found. */
std::string ChronySink::deliver(const ClockSample& sample) {
    const ChronySample datagram = datagramOf(sample);
    const ssize_t sent = sendto(socket_.get(), &datagram, sizeof datagram, MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr*>(&address_), sizeof address_);
    return sent < 0 ? problem(errno) : "";
}

}  // namespace

std::unique_ptr<SampleSink> makeChronySink(const std::string& path) {
    return std::make_unique<ChronySink>(path);
}

}  // namespace tsyn
