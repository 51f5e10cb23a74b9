#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdint>
#include <functional>
#include <vector>

#include "api/DaemonState.h"
#include "api/InterfaceDataManager.h"
#include "api/MessagePumps.h"
#include "tests/support/Daemon.h"
#include "tests/support/Hex.h"
#include "tests/support/StdoutCapture.h"

// Hosts may be built with stacks that are aligned to four bytes only, which i386 allows.
#ifdef __i386__

namespace {

constexpr unsigned kAlignments[] = {0, 4, 8, 12};

using Word = std::uint32_t;
using Words = std::vector<Word>;

/** Calls a function with words as its arguments from a stack so many bytes below a multiple of
 *  16. */
__attribute__((noinline)) Word callBelow(unsigned bytes, const void* function, const Words& words) {
    const Word* const arguments = words.data();
    Word count = static_cast<Word>(words.size());
    Word result = 0;
    __asm__ volatile(
        "movl %%esp, %%ebx\n\t"
        "andl $-16, %%esp\n\t"
        "subl %%edx, %%esp\n\t"
        "1: testl %%ecx, %%ecx\n\t"
        "jz 2f\n\t"
        "decl %%ecx\n\t"
        "pushl (%%esi,%%ecx,4)\n\t"
        "jmp 1b\n\t"
        "2: call *%%edi\n\t"
        "movl %%ebx, %%esp"
        : "=a"(result), "+c"(count), "+d"(bytes)
        : "S"(arguments), "D"(function)
        : "ebx", "memory", "cc");
    return result;
}

Word wordOf(const void* pointer) {
    return static_cast<Word>(reinterpret_cast<std::uintptr_t>(pointer));
}

struct Outputs {
    unsigned long long seconds;
    unsigned int nanoseconds, delay, rejected, status;
    unsigned short sequenceId;
    unsigned char count;
    TSynSubTlvReport report;
    TSynUserData userData;
};

/** Every control function but Create and Destroy, with arguments that reach all of it. */
void callControlFunctions(unsigned bytes) {
    static Outputs out;
    static const unsigned char data[] = {3, 1, 2, 3};
    const auto call = [=](auto* function, const Words& words) {
        return callBelow(bytes, reinterpret_cast<const void*>(function), words);
    };
    const Word seconds = wordOf(&out.seconds), nanoseconds = wordOf(&out.nanoseconds);
    EXPECT_EQ(0U, call(ZebEthTSynInterface_Start, {0, 0, 0}));
    call(ZebEthTSynInterface_GetCurrentTime,
         {0, seconds, nanoseconds, wordOf(&out.sequenceId), wordOf(&out.delay),
          wordOf(&out.rejected), wordOf(&out.status), wordOf(&out.report), wordOf(&out.userData)});
    EXPECT_EQ(0U, call(ZebEthTSynInterface_GetMasterTime, {0, seconds, nanoseconds}));
    EXPECT_EQ(0U, call(ZebEthTSynInterface_SetHardTime, {0, 1700000000, 0, 5, 1}));
    EXPECT_EQ(0U, call(ZebEthTSynInterface_SetSoftTime, {0, 1700000000, 0, 5, 1}));
    EXPECT_EQ(0U, call(ZebEthTSynInterface_SetTime, {0, 1700000000, 0, 5, 1, wordOf(data)}));
    EXPECT_EQ(0U, call(ZebEthTSynInterface_SetStatus, {0, 1}));
    EXPECT_EQ(0U, call(ZebEthTSynInterface_SetTimeBaseStatus, {0, 8}));
    EXPECT_EQ(0U, call(ZebEthTSynInterface_SetUserData, {0, wordOf(data)}));
    EXPECT_EQ(0U, call(ZebEthTSynInterface_SetTxMode, {0, 1, 1}));
    EXPECT_EQ(0U, call(ZebEthTSynInterface_getDaemonStatus,
                       {0, nanoseconds, nanoseconds, nanoseconds, wordOf(&out.count)}));
    EXPECT_EQ(0U, call(ZebEthTSynInterface_Stop, {}));
    call(ZebEthTSynInterface_GetCurrentTime, {0, seconds, nanoseconds, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(0U, call(ZebEthTSynInterface_Start, {0, 0, 0}));
}

TEST(StackAlignment, ControlFunctionsTakeEveryMultipleOfFour) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    TSynInstanceConfig config = masterConfig();
    config.syncInterval = 1000.0;
    const RunningDaemon daemon(config, RunningDaemon::kMasterThreads);
    for (const unsigned bytes : kAlignments) {
        callControlFunctions(bytes);
        const auto* const create = reinterpret_cast<const void*>(ZebEthTSynInterface_Create);
        EXPECT_EQ(0U, callBelow(bytes, create, {wordOf(&config)}));
    }
    const auto* const destroy = reinterpret_cast<const void*>(ZebEthTSynInterface_Destroy);
    for (const unsigned bytes : kAlignments) {
        EXPECT_EQ(0U, callBelow(bytes, destroy, {}));
    }
}

/** A thread body and its argument, entered from such a stack. */
struct Entry {
    unsigned bytes;
    void* (*body)(void*);
    void* argument;
};

void* enter(void* argument) {
    const Entry& entry = *static_cast<Entry*>(argument);
    callBelow(entry.bytes, reinterpret_cast<const void*>(entry.body), {wordOf(entry.argument)});
    return nullptr;
}

/** Enters thread bodies and leaves the process when a condition holds. */
[[noreturn]] void enterUntil(std::vector<Entry> entries, const std::function<bool()>& condition) {
    for (Entry& entry : entries) {
        pthread_t thread{};
        pthread_create(&thread, nullptr, enter, &entry);
    }
    _exit(condition() ? 0 : 9);
}

[[noreturn]] void enterMainThread(unsigned bytes) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const PeerSocket peer("tsm0peer");
    DbgTraceLevel = 0;
    const TSynInstanceConfig config = masterConfig();
    auto* const block = &InterfaceDataManager::getInstance(&config)->block;
    enterUntil({{bytes, MainEntryPointSharedLibrary, block}},
               [&] { return peer.awaitType(0).has_value(); });
}

[[noreturn]] void enterPumps(unsigned bytes) {
    const StdoutCapture output;
    const CardSandbox sandbox;
    const PeerSocket peer("tsm0peer");
    DbgTraceLevel = 0;
    const TSynInstanceConfig config = slaveConfig();
    InterfaceDataManager::getInstance(&config);
    NetworkService<sock> service("tsm0");
    PTPMessageFactory factory;
    PTPMsgPathDelayReq request(0, 1);
    InputPumpRecord input{&service, &factory};
    OutputPumpRecord sender{&service, &request, nullptr, 1000};
    __atomic_store_n(&runningState, 1, __ATOMIC_RELAXED);
    Bytes asked = fromHex("0180c200000e02000000000288f712020036");
    asked.resize(14 + 54);
    enterUntil({{bytes, InputThreader, &input}, {bytes, OutputThreader, &sender}},
               [&] { return peer.awaitType(2) && peer.send(asked) && peer.awaitType(10); });
}

class ThreadEntryDeathTest : public testing::TestWithParam<unsigned> {};

TEST_P(ThreadEntryDeathTest, OfTheMainThreadTakesEveryMultipleOfFour) {
    EXPECT_EXIT(enterMainThread(GetParam()), testing::ExitedWithCode(0), "");
}

TEST_P(ThreadEntryDeathTest, OfThePumpsTakesEveryMultipleOfFour) {
    EXPECT_EXIT(enterPumps(GetParam()), testing::ExitedWithCode(0), "");
}

INSTANTIATE_TEST_SUITE_P(StackAlignment, ThreadEntryDeathTest, testing::ValuesIn(kAlignments));

}  // namespace

#endif
