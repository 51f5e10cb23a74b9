#include "tools/tsyn/run/SpyThread.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <thread>

#include "include/ZebEthTimeSynSupportInterface.h"
#include "tools/common/OwnDescriptor.h"

namespace tsyn {
namespace {

constexpr unsigned short kSpyPort = 319;

}  // namespace

std::string spyPortProblem() {
    const tools::OwnDescriptor trial(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(kSpyPort);
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    const bool bound = trial.isOpen() && bind(trial.get(), reinterpret_cast<sockaddr*>(&address),
                                              sizeof address) == 0;
    const int failure = errno;
    if (bound) {
        return {};
    }
    const std::string advice = failure == EADDRINUSE
                                   ? "end the program that has it, such as ptp4l"
                                   : "tsyn needs CAP_NET_BIND_SERVICE for it, or run as root";
    return "--spy: UDP port " + std::to_string(kSpyPort) + " cannot be taken (" +
           std::strerror(failure) + "); " + advice;
}

void startSpyThread() {
    // Nothing ends the provider, so that nothing could join it.
    std::thread([] { RemotePTPSpyProvider(nullptr); }).detach();
}

}  // namespace tsyn
