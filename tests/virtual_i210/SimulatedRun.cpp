#include "tests/virtual_i210/SimulatedRun.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace {

volatile sig_atomic_t caught = 0;

}  // namespace

#ifdef __SANITIZE_ADDRESS__
/** A cancelled thread leaves the marks of its frames behind on its stack, where AddressSanitizer's
 *  own query of the signal stack then reports itself. */
extern "C" const char* __asan_default_suppressions() {
    return "interceptor_name:sigaltstack\n";
}
#endif

SimulatedRun::SimulatedRun(const std::string& settings, bool withCable) {
    if (withCable) {
        sandbox_.addVethPair("tsm0", "tss0");
    }
    setenv("VIRTUAL_I210", ("clock=simulated state=/dev/shm/run seed=7 " + settings).c_str(), 1);
    close(open("/dev/ptp0", O_RDONLY));
}

std::uint64_t readNs(clockid_t clock) {
    timespec time{};
    EXPECT_EQ(0, clock_gettime(clock, &time));
    return static_cast<std::uint64_t>(time.tv_sec) * kSecond +
           static_cast<std::uint64_t>(time.tv_nsec);
}

std::uint64_t nowNs() {
    return readNs(CLOCK_MONOTONIC);
}

std::uint64_t durationOf(const std::function<void()>& call) {
    const std::uint64_t before = nowNs();
    call();
    return nowNs() - before;
}

timespec timespecOf(std::uint64_t ns) {
    timespec time{};
    time.tv_sec = static_cast<time_t>(ns / kSecond);
    time.tv_nsec = static_cast<long>(ns % kSecond);
    return time;
}

timespec ahead(clockid_t clock, std::uint64_t ns) {
    return timespecOf(readNs(clock) + ns);
}

void sleepNs(std::uint64_t ns) {
    const timespec end = ahead(CLOCK_MONOTONIC, ns);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == EINTR) {
    }
}

pid_t startProcess(const std::function<int()>& body) {
    const pid_t pid = fork();
    if (pid == 0) {
        _exit(body());
    }
    return pid;
}

int resultOf(pid_t pid) {
    int status = 0;
    EXPECT_EQ(pid, waitpid(pid, &status, 0));
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void catchSignal(int number, int flags) {
    struct sigaction action {};
    action.sa_flags = flags;
    action.sa_handler = [](int) { caught = caught + 1; };
    EXPECT_EQ(0, sigaction(number, &action, nullptr));
}

int caughtSignals() {
    return caught;
}
