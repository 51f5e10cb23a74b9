#include "api/DaemonState.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "base/DbgLog.h"
#include "timebase/osipc.h"

namespace {

template <typename Value>
bool isAllZero(const Value& value) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(&value);
    return std::all_of(bytes, bytes + sizeof value, [](unsigned char byte) { return byte == 0; });
}

TEST(DaemonState, StartsIdleWithoutARole) {
    EXPECT_EQ(0, runningState);
    EXPECT_EQ('?', MasterOrSlave);
    EXPECT_EQ(0U, threadCount);
    EXPECT_EQ(0, bSuppressPDelay);
    EXPECT_EQ(0, override_portstate);
    EXPECT_EQ("", EthStackIdent);
    EXPECT_EQ("", netifname);
    EXPECT_EQ("", devname);
    EXPECT_EQ("", shm_name);
}

TEST(DaemonState, ConditionVariablesAreAllZeroBytes) {
    for (const std::condition_variable* condition :
         {&condvar, &cvpd, &cvout, &cv, &cv1, &cv2, &cv_announce}) {
        EXPECT_EQ(48U, sizeof *condition);
        EXPECT_TRUE(isAllZero(*condition));
    }
}

TEST(DaemonState, MutexesAreAllZeroBytes) {
    EXPECT_TRUE(isAllZero(mutexInputThreader));
    EXPECT_TRUE(isAllZero(mutexOutputThreader));
    EXPECT_TRUE(isAllZero(pMutex));
    EXPECT_EQ(14U, sizeof th_mutex / sizeof th_mutex[0]);
    EXPECT_TRUE(isAllZero(th_mutex));
}

TEST(DaemonState, TheHooksChangeNothing) {
    volatile unsigned counter = 5;
    atomic_add(&counter, 1);
    EXPECT_EQ(5U, counter);
    atomic_sub(&counter, 1);
    EXPECT_EQ(5U, counter);
}

}  // namespace
