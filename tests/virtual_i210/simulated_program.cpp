#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "tests/virtual_i210/PtpFrames.h"

/** What tests run as a program of a simulated run. */

namespace {

std::uint64_t nowNs() {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 +
           static_cast<std::uint64_t>(time.tv_nsec);
}

void print(const char* what, unsigned number) {
    std::printf("%llu %s %u\n", static_cast<unsigned long long>(nowNs()), what, number);
    std::fflush(stdout);
}

volatile sig_atomic_t told = 0;

/** Sends a Sync message every 125 ms and prints when it sent and received one, until it is told to
 *  end. */
int talk(const char* interfaceName) {
    struct sigaction action {};
    action.sa_handler = [](int) { told = 1; };
    sigaction(SIGTERM, &action, nullptr);
    const PeerSocket socket(interfaceName);
    std::thread sender([&socket] {
        for (unsigned i = 0;; ++i) {
            usleep(125'000);
            print("sends", i);
            socket.send(ptpFrame(0, i));
        }
    });
    pollfd entry = {socket.descriptor(), POLLIN, 0};
    while (told == 0) {
        if (poll(&entry, 1, -1) == 1) {
            const auto frame = socket.receive(kAtOnce);
            print("has", frame ? frame->bytes.at(45) : 999u);
        }
    }
    pthread_cancel(sender.native_handle());
    sender.join();
    print("ends", 0);
    return 5;
}

/** The first thread ends before the process, which ends a second later. */
int endFirst() {
    static const pthread_t first = pthread_self();
    std::thread([] {
        pthread_join(first, nullptr);
        sleep(1);
        _exit(5);
    }).detach();
    pthread_exit(nullptr);
}

int crash() {
    sleep(1);
    signal(SIGSEGV, SIG_DFL);
    return raise(SIGSEGV);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string order = argc > 1 ? argv[1] : "";
    return order == "talk"        ? talk(argv[2])
           : order == "end-first" ? endFirst()
           : order == "crash"     ? crash()
           : order == "sleep"     ? static_cast<int>(sleep(std::strtoul(argv[2], nullptr, 10)))
                                  : 2;
}
