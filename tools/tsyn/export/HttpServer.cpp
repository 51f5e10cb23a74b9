#include "tools/tsyn/export/HttpServer.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "tools/tsyn/daemon/Look.h"
#include "tools/tsyn/export/HttpAnswer.h"

namespace tsyn {
namespace {

constexpr std::size_t kMostClients = 16;
constexpr double kClientS = 5.0;

using AddressList = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

AddressList noAddress() {
    return {nullptr, freeaddrinfo};
}

/** Empty for anything but ADDR:PORT and [ADDR]:PORT. */
AddressList addressOf(const std::string& text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0) {
        return noAddress();
    }
    std::string host = text.substr(0, colon);
    const std::string port = text.substr(colon + 1);
    const bool isBracketed = host.front() == '[' && host.back() == ']' && host.size() > 2;
    const bool isPort = !port.empty() && port.size() <= 5 &&
                        port.find_first_not_of("0123456789") == std::string::npos &&
                        std::stoi(port) <= 65535;
    if (!isPort || (!isBracketed && host.find(':') != std::string::npos)) {
        return noAddress();
    }
    if (isBracketed) {
        host = host.substr(1, host.size() - 2);
    }
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    hints.ai_family = isBracketed ? AF_INET6 : AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    return getaddrinfo(host.c_str(), port.c_str(), &hints, &found) == 0
               ? AddressList(found, freeaddrinfo)
               : noAddress();
}

std::string listenProblem(int error) {
    switch (error) {
    case EADDRINUSE:
        return "another program listens there; name another port or address";
    case EADDRNOTAVAIL:
        return "no address of this machine; 0.0.0.0 and [::] are all of them";
    case EACCES:
        return "ports below 1024 are for root; name another port";
    default:
        return std::string("cannot listen there (") + std::strerror(error) + ")";
    }
}

}  // namespace

std::string HttpServer::listen(const std::string& address) {
    const std::string what = "--listen " + address + ": ";
    const AddressList found = addressOf(address);
    if (!found) {
        return what + "no ADDR:PORT, such as 127.0.0.1:9319 or [::1]:9319";
    }
    listener_.reset(
        socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_TCP));
    const int on = 1;
    // Connections of the program before, which the kernel still remembers, are no hindrance.
    setsockopt(listener_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (!listener_.isOpen() || bind(listener_.get(), found->ai_addr, found->ai_addrlen) != 0 ||
        ::listen(listener_.get(), SOMAXCONN) != 0) {
        return what + listenProblem(errno);
    }
    return {};
}

std::string HttpServer::name() const {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    char host[NI_MAXHOST] = "";
    char port[NI_MAXSERV] = "";
    getsockname(listener_.get(), reinterpret_cast<sockaddr*>(&address), &length);
    getnameinfo(reinterpret_cast<const sockaddr*>(&address), length, host, sizeof host, port,
                sizeof port, NI_NUMERICHOST | NI_NUMERICSERV);
    const bool isV6 = address.ss_family == AF_INET6;
    return (isV6 ? "[" + std::string(host) + "]" : std::string(host)) + ":" + port;
}

void HttpServer::accept() {
    const int fd = accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd >= 0) {
        clients_.emplace_back(fd, monotonicNowS() + kClientS);
    }
}

/** What comes after the request is thrown away: closing with bytes unread would cut the answer. */
void HttpServer::read(Client& client) {
    char bytes[2048];
    const ssize_t length = recv(client.socket.get(), bytes, sizeof bytes, 0);
    if (length <= 0) {
        client.isDone = length == 0 || errno != EAGAIN;
        return;
    }
    if (client.isAnswered) {
        return;
    }
    client.input.append(bytes, static_cast<std::size_t>(length));
    if (const std::optional<std::string> answer = httpAnswer(client.input, metrics_)) {
        client.output = *answer;
        client.isAnswered = true;
        write(client);
    }
}

void HttpServer::write(Client& client) {
    const ssize_t length = send(client.socket.get(), client.output.data() + client.sent,
                                client.output.size() - client.sent, MSG_NOSIGNAL);
    if (length < 0) {
        client.isDone = errno != EAGAIN;
        return;
    }
    client.sent += static_cast<std::size_t>(length);
    if (client.sent == client.output.size()) {
        shutdown(client.socket.get(), SHUT_WR);
    }
}

void HttpServer::serve(Waiting& waiting, double momentS) {
    std::vector<pollfd> waited;
    for (const Client& client : clients_) {
        const bool isWriting = client.sent < client.output.size();
        waited.push_back(
            {client.socket.get(), static_cast<short>(isWriting ? POLLOUT : POLLIN), 0});
        momentS = std::min(momentS, client.endS);
    }
    // The others wait in the kernel until one of these has gone.
    waited.push_back({clients_.size() < kMostClients ? listener_.get() : -1, POLLIN, 0});
    waiting.until(momentS, waited);
    std::size_t next = 0;
    for (Client& client : clients_) {
        const short events = waited[next++].revents;
        if ((events & POLLOUT) != 0) {
            write(client);
        } else if (events != 0) {
            read(client);
        }
    }
    const double nowS = monotonicNowS();
    clients_.remove_if(
        [nowS](const Client& client) { return client.isDone || client.endS <= nowS; });
    if (waited.back().revents != 0) {
        accept();
    }
}

}  // namespace tsyn
