#include <cstdlib>
#include <new>
#include <utility>

#include "tests/autosar/AutosarInstance.h"
#include "tests/support/MemorySeam.h"

namespace {

class SubTlvMask : public AutosarInstance {
protected:
    unsigned int maskOf(unsigned int timeSubTlv, unsigned int statusSubTlv,
                        unsigned int userDataSubTlv) {
        block.cfg.timeSubTlv = timeSubTlv;
        block.cfg.statusSubTlv = statusSubTlv;
        block.cfg.userDataSubTlv = userDataSubTlv;
        return getConfigParameterBlockTLVBitmask();
    }
};

TEST_F(SubTlvMask, OfAllSelectorsIsAsEveryVectorTells) {
    for (const nlohmann::json& vector : vectors("tlv_mask")) {
        const nlohmann::json& selectors = vector.at("selectors");
        const unsigned int mask = maskOf(selectors.at(0), selectors.at(1), selectors.at(2));
        EXPECT_EQ(vector.at("mask").get<unsigned int>(), mask) << vector;
        const unsigned int behindHeaders = subTlvSize(mask);
        EXPECT_EQ(vector.at("messageLength").get<unsigned int>(),
                  mask == 0 ? 76 : 86 + behindHeaders)
            << vector;
        const TLVObject headers(0, nullptr, static_cast<unsigned char>(mask));
        EXPECT_EQ(vector.at("lengthField").get<unsigned int>(), wire::load16(headers.bytes + 34))
            << vector;
    }
}

TEST_F(SubTlvMask, SelectorsOtherThanOneAndTwoSelectNothing) {
    for (const unsigned int value : {0U, 3U, 4U, 257U, 0x80000001U, 0xFFFFFFFFU}) {
        EXPECT_EQ(0U, maskOf(value, value, value)) << value;
    }
}

TEST_F(SubTlvMask, OneSecuresAndTwoDoesNot) {
    EXPECT_EQ(0x15U, maskOf(1, 2, 2));
    EXPECT_EQ(0x0BU, maskOf(1, 1, 1));
}

TEST_F(SubTlvMask, TimeHasNoFormThatIsNotSecured) {
    EXPECT_EQ(0U, maskOf(2, 0, 0));
}

TEST_F(SubTlvMask, IsReadAnewEveryTime) {
    EXPECT_EQ(0x01U, maskOf(1, 0, 0));
    EXPECT_EQ(0x00U, maskOf(0, 0, 0));
    EXPECT_EQ(0x02U, maskOf(0, 1, 0));
}

/** No instance, and no memory for one, while it lives. */
class NoInstance : public AutosarInstance {
protected:
    NoInstance() : earlier_(std::exchange(InterfaceDataManager::m_pInstance, nullptr)) {
        memoryExhausted = true;
    }
    ~NoInstance() override {
        memoryExhausted = false;
        InterfaceDataManager::m_pInstance = earlier_;
    }

private:
    InterfaceDataManager* earlier_;
};

TEST_F(NoInstance, GivesAnEmptyMaskAndAnErrorLine) {
    const StdoutCapture output;
    EXPECT_EQ(0U, getConfigParameterBlockTLVBitmask());
    ASSERT_EQ(1U, output.lines().size());
    EXPECT_EQ("ERROR", output.lines()[0].level);
    EXPECT_EQ("getConfigParameterBlockTLVBitmask", output.lines()[0].function);
    EXPECT_EQ("There is no InterfaceDataManager ...", output.lines()[0].text);
}

TEST_F(NoInstance, LeavesBlocksEmptyAndAcceptsWhatComes) {
    FollowUp followUp(securedMessage());
    const StdoutCapture output;
    EXPECT_TRUE(subTlv(0x28, followUp).empty());
    EXPECT_EQ(0U, TLVObject(0, nullptr, 0x01).count);
    EXPECT_EQ(Verdict(1), process(followUp.receivedTlv(), followUp));
    EXPECT_EQ("", output.text());
}

TEST_F(NoInstance, CrcIsTheSubstituteOfASlave) {
    const unsigned char byte = 1;
    EXPECT_EQ(0xFF, Crc_CalculateCRC8H2F(&byte, 1, 0, true));
}

}  // namespace
