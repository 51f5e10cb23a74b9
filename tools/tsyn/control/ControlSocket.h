#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tools/common/OwnDescriptor.h"

namespace tsyn {

/** The way to a running daemon: a Unix socket that keeps the bounds of packets. A request is one
 *  packet, the answer another; then the daemon closes the connection. Only the daemon's user and
 *  root may connect. */

inline constexpr std::size_t kMostRequestBytes = 1024;

/** Where the socket of an interface may be, the preferred place first. */
std::vector<std::string> controlPaths(const std::string& interfaceName);

/** Sends a request. Fills the answer in; returns what went wrong, empty on success. */
std::string exchangeRequest(const std::string& path, const std::string& request,
                            std::string& answer);

class ControlSocket {
public:
    ControlSocket() = default;
    ~ControlSocket();
    ControlSocket(const ControlSocket&) = delete;
    ControlSocket& operator=(const ControlSocket&) = delete;

    /** Takes requests from now on; each raises SIGIO, which has to be blocked. Returns what went
     *  wrong, empty on success. */
    std::string open(const std::string& path);

    /** Answers what has come in, without waiting for anybody. */
    void serve(const std::function<std::string(const std::string& request)>& answer);

private:
    void acceptAll();

    std::string path_;
    tools::OwnDescriptor listener_;
    std::deque<std::unique_ptr<tools::OwnDescriptor>> clients_;
};

}  // namespace tsyn
