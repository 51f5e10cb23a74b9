#include "tools/simulate/Network.h"

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "tools/common/OwnDescriptor.h"
#include "tools/common/OwnNetwork.h"
#include "tools/simulate/Paths.h"

namespace simulate {
namespace {

/** Above what the kernel may put into a new namespace, so that indices are the same everywhere. */
constexpr std::size_t kFirstIndex = 11;

[[noreturn]] void fail(const std::string& action) {
    throw std::runtime_error("cannot " + action + ": " + std::strerror(errno));
}

/** The child goes on; this process ends with its status. */
void goOnInChild() {
    const pid_t child = fork();
    if (child < 0) {
        fail("start a process");
    }
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        return;
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    constexpr int kSignalled = 128;
    _exit(WIFEXITED(status) ? WEXITSTATUS(status) : kSignalled + WTERMSIG(status));
}

std::string address(std::size_t number) {
    std::array<char, sizeof "02:00:00:00:00:00"> text{};
    std::snprintf(text.data(), text.size(), "02:00:00:00:%02x:%02x",
                  static_cast<unsigned>(number >> 8) & 0xFFu,
                  static_cast<unsigned>(number) & 0xFFu);
    return text.data();
}

/** Position among the nodes that have a card, from 1. */
std::size_t positionOf(const Scenario& scenario, const std::string& name) {
    std::size_t position = 0;
    for (const Node& node : scenario.nodes) {
        position += node.ownsCard() ? 1 : 0;
        if (node.name == name) {
            break;
        }
    }
    return position;
}

std::string endOf(const Scenario& scenario, const std::string& node) {
    const std::size_t position = positionOf(scenario, node);
    return node + " index " + std::to_string(kFirstIndex + position - 1) + " address " +
           address(position);
}

/** A node may be called by one of the words of `ip`, hence dev. */
std::string raised(const std::string& name) {
    return "link set dev " + name + " addrgenmode none arp off multicast on up\n";
}

std::string linkCommands(const Scenario& scenario, const Net& net) {
    return "link add name " + endOf(scenario, net.nodes[0]) + " type veth peer name " +
           endOf(scenario, net.nodes[1]) + "\n" + raised(net.nodes[0]) + raised(net.nodes[1]);
}

/** A '-' keeps the names of ports apart from those of nodes. */
std::string portOf(const Scenario& scenario, const std::string& node) {
    return "port-" + std::to_string(positionOf(scenario, node));
}

std::string bridgeCommands(const Scenario& scenario, const Net& net, std::size_t index) {
    // The bit lets 01-80-C2-00-00-0E pass, which a bridge keeps to itself otherwise.
    std::string text = "link add name " + net.name + " index " + std::to_string(index) +
                       " address " + address(index) +
                       " type bridge stp_state 0 mcast_snooping 0 group_fwd_mask 0x4000\n" +
                       raised(net.name);
    for (const std::string& node : net.nodes) {
        const std::string port = portOf(scenario, node);
        const std::size_t portIndex = index + positionOf(scenario, node);
        text.append("link add name ").append(endOf(scenario, node));
        text.append(" type veth peer name ").append(port);
        text.append(" index " + std::to_string(portIndex));
        text.append(" address ").append(address(portIndex));
        text.append("\nlink set dev ").append(port).append(" master ").append(net.name);
        text.append("\n").append(raised(node)).append(raised(port));
    }
    return text;
}

ifreq requestFor(const std::string& name) {
    ifreq request{};
    name.copy(request.ifr_name, sizeof request.ifr_name - 1);
    return request;
}

void awaitLink(const std::string& name) {
    if (!tools::carriesFrames(name)) {
        fail("bring up " + name);
    }
}

void awaitNet(const Scenario& scenario, const Net& net) {
    for (const std::string& node : net.nodes) {
        awaitLink(node);
        if (net.bridge) {
            awaitLink(portOf(scenario, node));
        }
    }
}

/** Runs `ip` with these commands on its standard input. */
void runIp(const std::string& commands) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) {
        fail("make a pipe");
    }
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[0], STDIN_FILENO);
        close(ends[0]);
        close(ends[1]);
        setenv("PATH", "/usr/sbin:/sbin:/usr/bin:/bin", 1);
        execlp("ip", "ip", "-batch", "-", nullptr);
        _exit(127);
    }
    close(ends[0]);
    std::size_t done = 0;
    while (child > 0 && done < commands.size()) {
        const ssize_t count = write(ends[1], commands.data() + done, commands.size() - done);
        if (count < 0) {
            break;
        }
        done += static_cast<std::size_t>(count);
    }
    close(ends[1]);
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) {
        fail("run ip");
    }
    if (status != 0) {
        throw std::runtime_error("ip could not make the network; is iproute2 installed?");
    }
}

}  // namespace

void enterNamespaces() {
    if (geteuid() != 0) {
        tools::becomeNamespaceRoot();
    }
    // Only now: another user's rights let the kernel forget it.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (unshare(CLONE_NEWNET | CLONE_NEWNS | CLONE_NEWPID) != 0) {
        fail("make network, mount and process namespaces");
    }
    goOnInChild();
}

void makePrivateFolder(const std::string& results) {
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        fail("make mounts private");
    }
    if (mount("tmpfs", kPrivateFolder, "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777") != 0) {
        fail(std::string("mount ") + kPrivateFolder);
    }
    if (symlink(results.c_str(), kResultsFolder) != 0) {
        fail(std::string("make ") + kResultsFolder);
    }
    // Of the new process namespace; where a container forbids it, programs see the other one.
    mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr);
}

std::string networkCommands(const Scenario& scenario) {
    std::string text = "link set lo up\n";
    std::size_t index = kFirstIndex + kMostCards;
    for (const Net& net : scenario.nets) {
        text += net.bridge ? bridgeCommands(scenario, net, index) : linkCommands(scenario, net);
        index += kMostCards + 1;
    }
    return text;
}

void makeNetwork(const Scenario& scenario) {
    // Nothing but the programs' frames shall be on the cables.
    std::ofstream("/proc/sys/net/ipv6/conf/default/disable_ipv6") << "1";
    runIp(networkCommands(scenario));
    for (const Net& net : scenario.nets) {
        awaitNet(scenario, net);
    }
}

void setInterface(const std::string& name, bool up) {
    const tools::OwnDescriptor fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request = requestFor(name);
    if (!fd.isOpen() || ioctl(fd.get(), SIOCGIFFLAGS, &request) != 0) {
        fail("read the flags of " + name);
    }
    const int flags = up ? request.ifr_flags | IFF_UP : request.ifr_flags & ~IFF_UP;
    request.ifr_flags = static_cast<short>(flags);
    if (ioctl(fd.get(), SIOCSIFFLAGS, &request) != 0) {
        fail("set the flags of " + name);
    }
    tools::carriesFrames(name);
}

}  // namespace simulate
