#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <thread>

#include "tests/virtual_i210/SimulatedRun.h"

namespace {

class SimulatedProcess : public SimulatedRun {
protected:
    /** Shared with processes that are forked. */
    void* const memory_ =
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    volatile std::uint64_t& shared_ = *static_cast<volatile std::uint64_t*>(memory_);
    std::atomic<bool>& told_ =
        *reinterpret_cast<std::atomic<bool>*>(static_cast<char*>(memory_) + 8);
};

TEST_F(SimulatedProcess, IsAwaitedToItsEnd) {
    const pid_t child = startProcess([] {
        sleepNs(5 * kSecond);
        return 3;
    });
    int status = 0;
    EXPECT_EQ(0, waitpid(child, &status, WNOHANG));
    EXPECT_EQ(5 * kSecond, durationOf([=] { EXPECT_EQ(3, resultOf(child)); }));
    EXPECT_EQ(-1, waitpid(child, &status, 0));
    EXPECT_EQ(ECHILD, errno);
}

TEST_F(SimulatedProcess, IsAwaitedByEachCall) {
    const auto sleepAndEnd = [] {
        return startProcess([] {
            sleepNs(kSecond);
            return 3;
        });
    };
    const pid_t first = sleepAndEnd();
    siginfo_t info{};
    EXPECT_EQ(0, waitid(P_PID, static_cast<id_t>(first), &info, WEXITED | WNOHANG));
    EXPECT_EQ(kSecond, durationOf([&] {
                  EXPECT_EQ(0, waitid(P_PID, static_cast<id_t>(first), &info, WEXITED));
              }));
    EXPECT_EQ(first, info.si_pid);
    EXPECT_EQ(3, info.si_status);
    const pid_t second = sleepAndEnd();
    int status = 0;
    EXPECT_EQ(kSecond, durationOf([&] { EXPECT_EQ(second, wait4(second, &status, 0, nullptr)); }));
    const pid_t third = sleepAndEnd();
    EXPECT_EQ(third, wait(&status));
    EXPECT_EQ(3, WEXITSTATUS(status));
}

TEST_F(SimulatedProcess, IsFoundEndedAtTheInstantOfItsEnd) {
    for (int i = 0; i < 100; ++i) {
        const pid_t child = startProcess([] {
            sleepNs(kSecond - 1);
            return 0;
        });
        sleepNs(kSecond);
        int status = 0;
        ASSERT_EQ(child, waitpid(child, &status, WNOHANG)) << i;
    }
}

TEST_F(SimulatedProcess, WorksOnItsOwnAccount) {
    const pid_t child = startProcess([] {
        timespec worked{};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &worked);
        return static_cast<int>(worked.tv_sec);
    });
    EXPECT_EQ(0, resultOf(child));
}

TEST_F(SimulatedProcess, EndsWhileItsOtherThreadsWait) {
    const pid_t child = startProcess([] {
        std::thread([] { sleep(1000); }).detach();
        std::thread([] { pause(); }).detach();
        sleepNs(kSecond);
        exit(4);
        return 0;
    });
    EXPECT_EQ(kSecond, durationOf([=] { EXPECT_EQ(4, resultOf(child)); }));
    EXPECT_EQ(5000 * kSecond, durationOf([] { sleep(5000); }));
}

TEST_F(SimulatedProcess, RunsAProgramThatIsNoPartOfTheRun) {
    const pid_t child = startProcess([] {
        unsetenv("VIRTUAL_I210");
        return execl("/bin/sh", "sh", "-c", "sleep 0.1; exit 7", nullptr);
    });
    EXPECT_EQ(1000 * kSecond, durationOf([] { sleep(1000); })) << "the run waited for it";
    EXPECT_EQ(7, resultOf(child));
}

TEST_F(SimulatedProcess, BecomesAProgramOfTheRun) {
    setenv("LD_PRELOAD", VIRTUAL_I210_PRELOAD, 1);
    const pid_t child = startProcess(
        [] { return execlp(SIMULATED_PROGRAM, SIMULATED_PROGRAM, "sleep", "86400", nullptr); });
    EXPECT_EQ(86'400 * kSecond, durationOf([=] { EXPECT_EQ(0, resultOf(child)); }));
    const pid_t second = startProcess([] {
        std::thread([] { sleep(1000); }).detach();
        sleepNs(1);
        char order[] = "sleep";
        char seconds[] = "60";
        char* const arguments[] = {order, order, seconds, nullptr};
        return execvp(SIMULATED_PROGRAM, arguments);
    });
    EXPECT_EQ(60 * kSecond + 1, durationOf([=] { EXPECT_EQ(0, resultOf(second)); }));
}

TEST_F(SimulatedProcess, StaysItselfWhenThereIsNoSuchProgram) {
    char* const none[] = {nullptr};
    for (const char* environment : {"LD_PRELOAD=libvirtual_i210.so", "A=B"}) {
        char* const settings[] = {const_cast<char*>(environment),
                                  const_cast<char*>("VIRTUAL_I210=x"), nullptr};
        EXPECT_EQ(-1, execve("/no/such/program", none, settings));
        EXPECT_EQ(ENOENT, errno);
        EXPECT_EQ(-1, execle("/no/such/program", "x", nullptr, settings));
        EXPECT_EQ(kSecond, durationOf([] { sleep(1); }));
    }
}

TEST_F(SimulatedProcess, ThatCrashesStopsNobody) {
    const pid_t child = startProcess([] {
        signal(SIGSEGV, SIG_DFL);
        sleepNs(kSecond);
        return raise(SIGSEGV);
    });
    EXPECT_EQ(10 * kSecond, durationOf([] { sleep(10); }));
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(SIGSEGV, WTERMSIG(status));
}

TEST_F(SimulatedProcess, ThatIsKilledStopsNobody) {
    const pid_t child = startProcess([] { return static_cast<int>(sleep(1000)); });
    sleepNs(kSecond);
    EXPECT_EQ(0, kill(child, SIGKILL));
    EXPECT_EQ(0u, durationOf([=] { EXPECT_EQ(-1, resultOf(child)); }));
    EXPECT_EQ(5000 * kSecond, durationOf([] { sleep(5000); }));
}

TEST_F(SimulatedProcess, ThatEndsItselfQuicklyStopsNobody) {
    const pid_t child = startProcess([] {
        sleepNs(kSecond);
        _Exit(9);
        return 0;
    });
    EXPECT_EQ(kSecond, durationOf([=] { EXPECT_EQ(9, resultOf(child)); }));
}

TEST_F(SimulatedProcess, StandsStillWhileItIsStopped) {
    const pid_t child = startProcess([this] {
        for (;;) {
            sleepNs(kSecond);
            shared_ = shared_ + 1;
        }
        return 0;
    });
    sleepNs(3 * kSecond + 1);
    EXPECT_EQ(3u, shared_);
    EXPECT_EQ(0, kill(child, SIGSTOP));
    sleepNs(100 * kSecond);
    EXPECT_EQ(3u, shared_);
    EXPECT_EQ(0, kill(child, SIGCONT));
    sleepNs(2 * kSecond);
    EXPECT_EQ(5u, shared_) << "the sleep that was over ended at once, then one of a second";
    EXPECT_EQ(0, kill(child, SIGKILL));
    resultOf(child);
}

TEST_F(SimulatedProcess, ThatNeverWaitsStopsNobody) {
    const pid_t child = startProcess([this] {
        while (!told_) {
            shared_ = shared_ + 1;
        }
        return nowNs() >= 1060 * kSecond ? 0 : 1;
    });
    EXPECT_EQ(60 * kSecond, durationOf([] { sleep(60); }));
    EXPECT_LT(0u, shared_);
    told_ = true;
    EXPECT_EQ(0, resultOf(child)) << "it does not come back into the run";
}

TEST_F(SimulatedProcess, IsAwaitedWhileAHandlerTakesATurn) {
    struct sigaction action {};
    action.sa_handler = [](int) { sleepNs(kSecond); };
    sigaction(SIGCHLD, &action, nullptr);
    startProcess([] { return 6; });
    int status = 0;
    EXPECT_LT(0, wait(&status));
    EXPECT_EQ(6, WEXITSTATUS(status));
    EXPECT_EQ(kSecond, durationOf([] { sleepNs(kSecond); }));
}

}  // namespace
