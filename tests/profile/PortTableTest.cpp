#include <gtest/gtest.h>

#include <memory>

#include "ptp/ProtocolSteps.h"
#include "ptp/clockitems.h"
#include "tests/profile/Profiled.h"

namespace {

PortKey keyOfClock(unsigned char clock) {
    return {static_cast<long long>(0x0101010101010101ULL * clock), 1};
}

bool isRemembered(unsigned char clock) {
    return clockItems.count(keyOfClock(clock)) == 1;
}

/** As the input pump: what is admitted gets its place. */
void receive(Bytes message) {
    if (isAdmitted(message)) {
        message.resize(256);
        const std::unique_ptr<PTPMessage> received(PTPMessageFactory().getPTPMessageInstance(
            reinterpret_cast<ptpv2hdr_t*>(message.data())));
        clockItemOf(received->retrievePortIdentity());
    }
}

void receiveSyncs(int first, int last) {
    for (int clock = first; clock <= last; ++clock) {
        receive(messageOf(0, 44, static_cast<unsigned char>(clock)));
    }
}

void sendRequest() {
    Bytes request = messageOf(2, 54, kOwn);
    protocolSteps.finish(request.data());
    clockItemOf(keyOfClock(kOwn));
}

TEST(PortTable, HoldsNoMoreThanItsLimit) {
    setProfile(deployedWith({{"portTableLimit", 8}}));
    sendRequest();
    receiveSyncs(0x20, 0xF0);
    EXPECT_EQ(8U, clockItems.size());
    EXPECT_TRUE(isRemembered(kOwn));
    EXPECT_TRUE(isRemembered(0xF0));
    EXPECT_TRUE(isRemembered(0xEA));
    EXPECT_FALSE(isRemembered(0xE9));
}

TEST(PortTable, ForgetsTheOneThatWasSilentLongest) {
    setProfile(deployedWith({{"portTableLimit", 8}}));
    receiveSyncs(0x20, 0x26);
    receiveSyncs(0x20, 0x20);
    receiveSyncs(0x27, 0x27);
    EXPECT_TRUE(isRemembered(0x20));
    EXPECT_FALSE(isRemembered(0x21));
}

TEST(PortTable, KeepsTheMasterBelieved) {
    configure(slaveConfig());
    setProfile(deployedWith({{"portTableLimit", 8}, {"oneMaster", 1}}));
    receiveSyncs(0x20, 0x20);
    for (int clock = 0x30; clock < 0xF0; ++clock) {
        receive(answerTo(static_cast<unsigned char>(clock), 3, 0xAA, 1));
    }
    EXPECT_TRUE(isRemembered(0x20));
    EXPECT_EQ(7U, clockItems.size()) << "one place is kept for the own port";
}

TEST(PortTable, OfDeployedNodesGrows) {
    setProfile(deployedWith({}));
    receiveSyncs(0x20, 0xF0);
    EXPECT_EQ(0xD1U, clockItems.size());
}

}  // namespace
