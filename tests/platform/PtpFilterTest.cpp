#include "platform/PtpFilter.h"

#include <gtest/gtest.h>

#include "tests/support/Hex.h"
#include "tests/support/Vectors.h"

namespace {

using Bytes = std::vector<unsigned char>;
using Program = std::array<sock_filter, kPtpFilterLength>;

/** The machine of the kernel for the instructions that a receive filter may use; -1 for others. A
 *  load beyond the frame drops it. */
long long verdict(const Program& program, const Bytes& frame) {
    unsigned int accumulator = 0;
    for (std::size_t pc = 0; pc < program.size(); ++pc) {
        const sock_filter& step = program[pc];
        const std::size_t size = BPF_SIZE(step.code) == BPF_H ? 2 : 1;
        switch (step.code) {
        case BPF_LD | BPF_H | BPF_ABS:
        case BPF_LD | BPF_B | BPF_ABS:
            if (step.k + size > frame.size()) {
                return 0;
            }
            accumulator = size == 1 ? frame[step.k]
                                    : static_cast<unsigned>(frame[step.k] << 8 | frame[step.k + 1]);
            break;
        case BPF_JMP | BPF_JEQ | BPF_K:
            pc += accumulator == step.k ? step.jt : step.jf;
            break;
        case BPF_RET | BPF_K:
            return step.k;
        default:
            return -1;
        }
    }
    return -1;
}

TEST(PtpFilter, HasTheInstructionsOfEveryVlanAndDomain) {
    for (const auto& vector : vectors("bpf")) {
        const Program program =
            ptpFilter(vector["VlanID"].get<int>(), vector["domain"].get<unsigned char>());
        ASSERT_EQ(vector["program"].size(), program.size());
        for (std::size_t i = 0; i < program.size(); ++i) {
            const auto& step = vector["program"][i];
            EXPECT_EQ(step[0].get<unsigned>(), program[i].code) << i;
            EXPECT_EQ(step[1].get<unsigned>(), program[i].jt) << i;
            EXPECT_EQ(step[2].get<unsigned>(), program[i].jf) << i;
            EXPECT_EQ(step[3].get<unsigned>(), program[i].k) << i;
        }
    }
}

TEST(PtpFilter, HasTheBytesThatTheKernelTakes) {
    for (const auto& vector : vectors("bpf")) {
        const Program program =
            ptpFilter(vector["VlanID"].get<int>(), vector["domain"].get<unsigned char>());
        EXPECT_EQ(vector["bytes_le"].get<std::string>(),
                  toHex(reinterpret_cast<const unsigned char*>(program.data()), sizeof program));
    }
}

TEST(PtpFilter, JudgesFramesByTagAndDomain) {
    const Program program = ptpFilter(5, 0);
    for (const auto& vector : vectors("bpf_verdicts")) {
        EXPECT_EQ(vector["verdict V=5 D=0"].get<long long>(),
                  verdict(program, fromHex(vector["frame"].get<std::string>())))
            << vector["frame"];
    }
}

Bytes untaggedFrame(unsigned char domain) {
    Bytes frame(58, 0);
    frame[12] = 0x88;
    frame[13] = 0xF7;
    frame[18] = domain;
    return frame;
}

TEST(PtpFilter, AcceptsOneDomainOfUntaggedFrames) {
    for (int domain = 0; domain < 256; ++domain) {
        const Program program = ptpFilter(-1, 7);
        EXPECT_EQ(domain == 7 ? 0xFFFFFFFFLL : 0,
                  verdict(program, untaggedFrame(static_cast<unsigned char>(domain))));
    }
}

TEST(PtpFilter, DropsOtherEtherTypes) {
    Bytes frame = untaggedFrame(0);
    frame[13] = 0xF8;
    EXPECT_EQ(0, verdict(ptpFilter(-1, 0), frame));
}

TEST(PtpFilter, DropsTaggedFramesOfOtherEtherTypes) {
    Bytes frame(62, 0);
    const unsigned char header[] = {0x81, 0x00, 0xE0, 0x05, 0x08, 0x00};
    std::copy(std::begin(header), std::end(header), frame.begin() + 12);
    EXPECT_EQ(0, verdict(ptpFilter(5, 0), frame));
}

TEST(PtpFilter, JudgesAnyOtherTagByTheDomainByteOfAnUntaggedFrame) {
    Bytes frame(62, 0);
    const unsigned char header[] = {0x81, 0x00, 0x60, 0x05, 0x88, 0xF7};
    std::copy(std::begin(header), std::end(header), frame.begin() + 12);
    frame[18] = 3;
    EXPECT_EQ(0xFFFFFFFFLL, verdict(ptpFilter(5, 3), frame));
    EXPECT_EQ(0, verdict(ptpFilter(5, 0), frame));
}

TEST(PtpFilter, DropsFramesThatEndBeforeTheDomain) {
    for (std::size_t length = 0; length < 19; ++length) {
        Bytes frame = untaggedFrame(0);
        frame.resize(length);
        EXPECT_EQ(0, verdict(ptpFilter(-1, 0), frame)) << length;
    }
}

}  // namespace
