#include "tools/tsyn/check/CaptureFile.h"

#include <gtest/gtest.h>
#include <pcap/pcap.h>
#include <unistd.h>

#include <cstdio>

#include "tests/support/Hex.h"
#include "tests/support/Vectors.h"
#include "tools/tsyn/check/CheckCommand.h"

namespace {

using Bytes = std::vector<unsigned char>;

constexpr char kDataIdsText[] = "101112131415161718191a1b1c1d1e1f";

/** A capture of its own that vanishes with the test. */
class CaptureFileTest : public testing::Test {
protected:
    ~CaptureFileTest() override { unlink(path_.c_str()); }

    void write(const std::vector<Bytes>& frames, int linkType = DLT_EN10MB) {
        pcap_t* const dead =
            pcap_open_dead_with_tstamp_precision(linkType, 65535, PCAP_TSTAMP_PRECISION_NANO);
        pcap_dumper_t* const dumper = pcap_dump_open(dead, path_.c_str());
        ASSERT_NE(nullptr, dumper) << pcap_geterr(dead);
        for (const Bytes& frame : frames) {
            pcap_pkthdr header{};
            header.ts.tv_sec = 1700000000;
            header.ts.tv_usec = 123456789;
            header.caplen = header.len = static_cast<unsigned int>(frame.size());
            pcap_dump(reinterpret_cast<unsigned char*>(dumper), &header, frame.data());
        }
        pcap_dump_close(dumper);
        pcap_close(dead);
    }

    int check(const std::string& dataIds = kDataIdsText) {
        tsyn::CheckOptions options;
        options.file = path_;
        options.dataIdList = dataIds;
        return tsyn::checkCommand(options);
    }

    const std::string path_ =
        testing::TempDir() + "tsyn-capture-" + std::to_string(getpid()) + ".pcap";
};

Bytes securedFollowUp() {
    for (const auto& vector : vectors("follow_up")) {
        if (vector.at("mask") == 11 && vector.at("TxCrcMode") == 1) {
            Bytes frame = fromHex("0180c200000e001b21aabbcc88f7");
            const Bytes message = fromHex(vector.at("message"));
            frame.insert(frame.end(), message.begin(), message.end());
            return frame;
        }
    }
    ADD_FAILURE() << "no vector with mask 11";
    return {};
}

TEST_F(CaptureFileTest, FramesComeBackWithNanoseconds) {
    write({securedFollowUp()});
    tsyn::CaptureFile file;
    ASSERT_EQ("", file.open(path_));
    tsyn::CaptureFrame frame;
    ASSERT_TRUE(file.next(frame));
    EXPECT_EQ(1U, frame.number);
    EXPECT_EQ(1700000000123456789ULL, frame.timeNs);
    EXPECT_EQ(securedFollowUp(), Bytes(frame.bytes, frame.bytes + frame.captured));
    EXPECT_FALSE(file.next(frame));
    EXPECT_EQ("", file.error());
}

TEST_F(CaptureFileTest, StatusTellsRightFromWrong) {
    write({securedFollowUp()});
    testing::internal::CaptureStdout();
    EXPECT_EQ(0, check());
    EXPECT_EQ(1, check("00000000000000000000000000000000"));
    const std::string text = testing::internal::GetCapturedStdout();
    EXPECT_NE(std::string::npos, text.find("no findings")) << text;
    EXPECT_NE(std::string::npos, text.find("UserData Secured: CRC_UserData is 0x")) << text;
}

TEST_F(CaptureFileTest, UnreadableFilesGiveOneLine) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(2, check());
    write({securedFollowUp()}, DLT_LINUX_SLL);
    EXPECT_EQ(2, check());
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_NE(std::string::npos, text.find("No such file")) << text;
    EXPECT_NE(std::string::npos, text.find("LINUX_SLL frames, not Ethernet")) << text;
    EXPECT_EQ(2, std::count(text.begin(), text.end(), '\n'));
}

TEST_F(CaptureFileTest, CutFileIsReportedAfterItsWholeFrames) {
    write({securedFollowUp(), securedFollowUp()});
    ASSERT_EQ(0, truncate(path_.c_str(), 24 + 16 + 116 + 20));
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    EXPECT_EQ(2, check());
    EXPECT_NE(std::string::npos, testing::internal::GetCapturedStdout().find(": 1 frames"));
    EXPECT_NE(std::string::npos, testing::internal::GetCapturedStderr().find("beyond frame 1"));
}

}  // namespace
