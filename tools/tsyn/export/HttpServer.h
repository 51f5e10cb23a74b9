#pragma once

#include <poll.h>

#include <functional>
#include <list>
#include <string>
#include <vector>

#include "tools/common/OwnDescriptor.h"
#include "tools/tsyn/watch/Waiting.h"

namespace tsyn {

/** Answers several clients at once, none of which can hold it up: each has a few seconds. */
class HttpServer {
public:
    explicit HttpServer(std::function<std::string()> metrics) : metrics_(std::move(metrics)) {}

    /** address: ADDR:PORT with an IPv4 address, or an IPv6 address in brackets; port 0 is any free
     *  one. Returns what is wrong: what, where and what to do; empty when it listens. */
    std::string listen(const std::string& address);

    /** Where it listens, as in a URL. */
    std::string name() const;

    /** Waits for clients until that moment of monotonicNowS(), and answers those that are ready. */
    void serve(Waiting& waiting, double momentS);

private:
    struct Client {
        Client(int fd, double endS) : socket(fd), endS(endS) {}

        tools::OwnDescriptor socket;
        double endS; /**< when it is dropped */
        std::string input;
        std::string output;
        std::size_t sent = 0;
        bool isAnswered = false;
        bool isDone = false;
    };

    void accept();
    void read(Client& client);
    void write(Client& client);

    std::function<std::string()> metrics_;
    tools::OwnDescriptor listener_;
    std::list<Client> clients_;
};

}  // namespace tsyn
