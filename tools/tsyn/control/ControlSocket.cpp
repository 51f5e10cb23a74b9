#include "tools/tsyn/control/ControlSocket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace tsyn {
namespace {

/** Who connects and says nothing makes room for the next. */
constexpr std::size_t kMostClients = 8;
constexpr int kPatienceS = 5;

bool addressOf(const std::string& path, sockaddr_un& address) {
    address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        return false;
    }
    path.copy(address.sun_path, path.size());
    return true;
}

const sockaddr* plain(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

bool isServed(const sockaddr_un& address) {
    const tools::OwnDescriptor trial(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    return connect(trial.get(), plain(address), sizeof address) == 0;
}

/** What a process that was killed left behind. */
void removeAbandoned(const sockaddr_un& address) {
    struct stat status {};
    if (lstat(address.sun_path, &status) == 0 && S_ISSOCK(status.st_mode) && !isServed(address)) {
        unlink(address.sun_path);
    }
}

void signalArrivals(int descriptor) {
    fcntl(descriptor, F_SETOWN, getpid());
    fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) | O_ASYNC | O_NONBLOCK);
}

/** Answers the request that a client has sent, when there is one; true when it is done with. */
bool serveClient(int client, const std::function<std::string(const std::string&)>& answer) {
    char request[kMostRequestBytes];
    const ssize_t size = recv(client, request, sizeof request, MSG_DONTWAIT | MSG_TRUNC);
    if (size < 0) {
        return errno != EAGAIN && errno != EINTR;
    }
    if (size > 0) {
        // One that was cut cannot be read as a whole, which the answer tells.
        const auto whole = std::min(static_cast<std::size_t>(size), sizeof request);
        const std::string text = answer(std::string(request, whole));
        static_cast<void>(send(client, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL));
    }
    return true;
}

}  // namespace

std::vector<std::string> controlPaths(const std::string& interfaceName) {
    std::vector<std::string> paths = {"/run/tsyn/" + interfaceName + ".sock"};
    const char* const own = std::getenv("XDG_RUNTIME_DIR");
    if (own != nullptr && *own != '\0') {
        paths.push_back(std::string(own) + "/tsyn/" + interfaceName + ".sock");
    }
    return paths;
}

std::string exchangeRequest(const std::string& path, const std::string& request,
                            std::string& answer) {
    sockaddr_un address{};
    if (!addressOf(path, address)) {
        return path + ": too long for a socket";
    }
    const tools::OwnDescriptor fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    const timeval patience{kPatienceS, 0};
    setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    char text[kMostRequestBytes];
    if (connect(fd.get(), plain(address), sizeof address) != 0 ||
        send(fd.get(), request.data(), request.size(), MSG_NOSIGNAL) < 0) {
        return path + ": " + std::strerror(errno);
    }
    const ssize_t size = recv(fd.get(), text, sizeof text, 0);
    if (size <= 0) {
        return path + ": no answer" + (size < 0 ? std::string(", ") + std::strerror(errno) : "");
    }
    answer.assign(text, static_cast<std::size_t>(size));
    return {};
}

ControlSocket::~ControlSocket() {
    if (listener_.isOpen()) {
        unlink(path_.c_str());
    }
}

std::string ControlSocket::open(const std::string& path) {
    const std::string failed = "--control " + path + ": cannot be opened (";
    sockaddr_un address{};
    if (!addressOf(path, address)) {
        return failed + "too long for a socket)";
    }
    mkdir(path.substr(0, path.rfind('/')).c_str(), 0755);
    removeAbandoned(address);
    listener_.reset(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    // Created without access for others rather than closed to them afterwards.
    const mode_t mask = umask(0177);
    const bool isBound =
        listener_.isOpen() && bind(listener_.get(), plain(address), sizeof address) == 0;
    const int failure = errno;
    umask(mask);
    if (!isBound) {
        listener_.reset();
        return failed + std::strerror(failure) + ")";
    }
    path_ = path;
    signalArrivals(listener_.get());
    if (listen(listener_.get(), static_cast<int>(kMostClients)) != 0) {
        return failed + std::strerror(errno) + ")";
    }
    return {};
}

void ControlSocket::acceptAll() {
    for (;;) {
        auto client = std::make_unique<tools::OwnDescriptor>(
            accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!client->isOpen()) {
            return;
        }
        signalArrivals(client->get());
        if (clients_.size() == kMostClients) {
            clients_.pop_front();
        }
        clients_.push_back(std::move(client));
    }
}

void ControlSocket::serve(const std::function<std::string(const std::string&)>& answer) {
    if (!listener_.isOpen()) {
        return;
    }
    acceptAll();
    const auto done = std::remove_if(clients_.begin(), clients_.end(), [&answer](auto& client) {
        return serveClient(client->get(), answer);
    });
    clients_.erase(done, clients_.end());
}

}  // namespace tsyn
