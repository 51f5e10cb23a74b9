#include <sys/mman.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <functional>
#include <new>

#include "tests/autosar/AutosarInstance.h"
#include "tests/support/Hex.h"

namespace {

/** A received TLV on two pages, of which only the one read last can be read: reading the other
 *  faults and swaps them. So a case knows the moment when its reader goes on from byte `split - 1`
 *  to byte `split`, and can do meanwhile what a host's thread would. */
class SplitTlv {
public:
    SplitTlv(const TLVObject& tlv, std::size_t split, std::function<void()> meanwhile)
        : page_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))), meanwhile_(std::move(meanwhile)) {
        void* const pages =
            mmap(nullptr, 2 * page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        EXPECT_NE(MAP_FAILED, pages);
        first_ = static_cast<unsigned char*>(pages);
        tlv_ = new (first_ + page_ - split) TLVObject(tlv);
        current_ = this;
        struct sigaction action {};
        action.sa_flags = SA_SIGINFO;
        action.sa_sigaction = [](int, siginfo_t* info, void*) {
            current_->enter(static_cast<unsigned char*>(info->si_addr));
        };
        sigaction(SIGSEGV, &action, &saved_);
        mprotect(first_, 2 * page_, PROT_NONE);
    }

    ~SplitTlv() {
        sigaction(SIGSEGV, &saved_, nullptr);
        munmap(first_, 2 * page_);
        EXPECT_TRUE(wasCrossed_) << "the reader never went on to the second page";
    }

    SplitTlv(const SplitTlv&) = delete;
    SplitTlv& operator=(const SplitTlv&) = delete;

    TLVObject* get() const { return tlv_; }

private:
    void enter(const unsigned char* address) {
        if (address < first_ || address >= first_ + 2 * page_) {
            sigaction(SIGSEGV, &saved_, nullptr);  // a fault of another kind comes again and ends
            return;
        }
        const bool isSecond = address >= first_ + page_;
        // The byte count stands on the second page too and is read before any byte.
        if (isSecond && wasInFirst_ && !wasCrossed_) {
            wasCrossed_ = true;
            meanwhile_();
        }
        wasInFirst_ = wasInFirst_ || !isSecond;
        mprotect(first_ + (isSecond ? page_ : 0), page_, PROT_READ);
        mprotect(first_ + (isSecond ? 0 : page_), page_, PROT_NONE);
    }

    static SplitTlv* current_;
    std::size_t page_;
    std::function<void()> meanwhile_;
    unsigned char* first_ = nullptr;
    TLVObject* tlv_ = nullptr;
    struct sigaction saved_ {};
    bool wasInFirst_ = false;
    bool wasCrossed_ = false;
};

SplitTlv* SplitTlv::current_ = nullptr;

/** A good TLV, before one of whose bytes the host acts. */
class HostMeanwhile : public AutosarInstance {
protected:
    Verdict processSplit(std::size_t byte, const std::function<void()>& meanwhile) {
        FollowUp followUp(securedMessage());
        TLVObject tlv = followUp.receivedTlv();
        // A sub-TLV of an unknown type in front moves the byte to where an aligned object may be
        // split.
        constexpr std::size_t kAlignment = alignof(TLVObject);
        const std::size_t split = (byte + 2 + kAlignment - 1) / kAlignment * kAlignment;
        const auto moved = static_cast<unsigned int>(split - byte);
        std::memmove(tlv.bytes + 10 + moved, tlv.bytes + 10, tlv.count - 10);
        tlv.bytes[10] = 0x7F;
        tlv.bytes[11] = static_cast<unsigned char>(moved - 2);
        wire::store16(tlv.bytes + 2, wire::load16(tlv.bytes + 2) + moved);
        tlv.count += moved;
        const SplitTlv received(tlv, split, meanwhile);
        return ProcessIncomingAutoSARTLVObjects(received.get(), followUp.header());
    }
};

TEST_F(HostMeanwhile, SetsUserDataAndTheReceivedOnesAreJudged) {
    EXPECT_EQ(Verdict(1), processSplit(25, [this] {
                  block.userDataLength = 3;
                  block.userBytes[0] = 0xAA;
              }));
    EXPECT_EQ("01010101", toHex(block.subTlvValid, 4));
    EXPECT_EQ(3, block.userDataLength) << "the host's come last";
}

TEST_F(HostMeanwhile, SetsTheStatusAndTheReceivedOneIsJudged) {
    EXPECT_EQ(Verdict(1), processSplit(18, [this] { block.timeBaseStatus = 0x0C; }));
    EXPECT_EQ("01010101", toHex(block.subTlvValid, 4));
    EXPECT_EQ(0x0C, block.timeBaseStatus);
}

TEST_F(HostMeanwhile, SetsTheTimeFlagsAndTheReceivedOnesDecideWhatIsCovered) {
    EXPECT_EQ(Verdict(1), processSplit(13, [this] { block.cfg.CrcTimeFlags = 0; }));
    EXPECT_EQ("01010101", toHex(block.subTlvValid, 4));
    EXPECT_EQ(0, block.cfg.CrcTimeFlags);
}

}  // namespace
