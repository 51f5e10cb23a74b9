#include "tests/support/Sandbox.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "tools/common/OwnNetwork.h"

namespace {

[[noreturn]] void fail(const std::string& action) {
    throw std::runtime_error("sandbox: cannot " + action + ": " + std::strerror(errno));
}

void awaitLink(const std::string& name) {
    if (!tools::carriesFrames(name)) {
        fail("bring up " + name);
    }
}

void makePrivateShm() {
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        fail("make mounts private");
    }
    if (mount("tmpfs", "/dev/shm", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777,size=64m") != 0) {
        fail("mount /dev/shm");
    }
}

}  // namespace

Sandbox::Sandbox() {
    if (geteuid() != 0) {
        tools::becomeNamespaceRoot();
    }
    if (unshare(CLONE_NEWNET | CLONE_NEWNS) != 0) {
        fail("make network and mount namespaces");
    }
    makePrivateShm();
    run({"ip", "link", "set", "lo", "up"});
}

void Sandbox::addVethPair(const std::string& first, const std::string& second) {
    run({"ip", "link", "add", first, "type", "veth", "peer", "name", second});
    for (const std::string& name : {first, second}) {
        std::array<char, sizeof "02:00:00:00:00:00"> address{};
        std::snprintf(address.data(), address.size(), "02:00:00:00:00:%02x",
                      static_cast<unsigned>(++interfaceCount_) & 0xFFu);
        run({"ip", "link", "set", name, "address", address.data(), "addrgenmode", "none", "arp",
             "off", "multicast", "on", "up"});
    }
    awaitLink(first);
    awaitLink(second);
}

void Sandbox::run(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& word : command) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    // Made here: a child that another thread's setenv() left with its lock would wait for ever.
    std::vector<char*> environment;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        if (std::strncmp(*entry, "LD_PRELOAD=", 11) != 0) {
            environment.push_back(*entry);
        }
    }
    environment.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        execvpe(arguments[0], arguments.data(), environment.data());
        _exit(127);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) {
        fail("run " + command[0]);
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::string text;
        for (const std::string& word : command) {
            text += " " + word;
        }
        throw std::runtime_error("sandbox: failed:" + text);
    }
}
