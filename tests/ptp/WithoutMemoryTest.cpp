#include <new>
#include <utility>

#include "tests/ptp/Handlers.h"
#include "tests/support/Hex.h"
#include "tests/support/MemorySeam.h"

namespace {

/** There is no configuration, and no memory for one. */
class WithoutMemory : public Handlers {
protected:
    WithoutMemory() : earlier_(std::exchange(InterfaceDataManager::m_pInstance, nullptr)) {
        memoryExhausted = true;
    }

    ~WithoutMemory() override {
        memoryExhausted = false;
        InterfaceDataManager::m_pInstance = earlier_;
        EXPECT_TRUE(platform().sent.empty());
    }

private:
    InterfaceDataManager* earlier_;
};

TEST_F(WithoutMemory, ASyncIsIgnored) {
    const std::string before = image(record);
    EXPECT_EQ(0U, handle(syncMessage(1), 1000));
    EXPECT_EQ(before, image(record));
    EXPECT_TRUE(clockItems.empty());
}

TEST_F(WithoutMemory, ARequestIsNotAnswered) {
    EXPECT_EQ(0U, handle(pdelayAnswer(2, 1, 0)));
}

TEST_F(WithoutMemory, NoSyncIsSent) {
    PTPMsgSync sync(0, kPort);
    sync.service = &service;
    EXPECT_EQ("", printedBy([&] { EXPECT_EQ(0U, sync.processOutgoing()); }));
    EXPECT_EQ("0000", toHex(sync.data() + 30, 2));
}

TEST_F(WithoutMemory, NoFollowUpIsFilled) {
    PTPMsgSync sync(0, kPort);
    PTPMsgFollowUp followUp(0);
    followUp.service = &service;
    ptp_time_t tx = {1, 2};
    const std::vector<unsigned char> before(followUp.data(), followUp.data() + 256);
    EXPECT_EQ(0U, followUp.processOutgoing(&sync, &tx));
    EXPECT_EQ(before, std::vector<unsigned char>(followUp.data(), followUp.data() + 256));
}

TEST_F(WithoutMemory, AFollowUpIsHandledAllTheSame) {
    clockItemOf(kPortKey).syncSequenceId = 1;
    EXPECT_EQ(1U, handleWithExtTime(followUpMessage(1, 5000)));
    EXPECT_EQ(1U, clockItemOf(kPortKey).initialised);
}

}  // namespace
