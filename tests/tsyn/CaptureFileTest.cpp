#include "tools/tsyn/check/CaptureFile.h"

#include <gtest/gtest.h>
#include <pcap/pcap.h>
#include <unistd.h>

#include <cstdio>

#include "Vectors.h"
#include "tools/tsyn/check/CheckCommand.h"

namespace {

using Bytes = std::vector<unsigned char>;

constexpr char kDataIds[] = "101112131415161718191a1b1c1d1e1f";

/** A capture of its own that vanishes with the test. */
class CaptureFileTest : public testing::Test {
protected:
    ~CaptureFileTest() override { unlink(path_.c_str()); }

    void write(const std::vector<Bytes>& frames, int linkType = DLT_EN10MB) {
        pcap_t* const dead =
            pcap_open_dead_with_tstamp_precision(linkType, 65535, PCAP_TSTAMP_PRECISION_NANO);
        pcap_dumper_t* const dumper = pcap_dump_open(dead, path_.c_str());
        ASSERT_NE(dumper, nullptr) << pcap_geterr(dead);
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

    int check(const std::string& dataIds = kDataIds) {
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
    ASSERT_EQ(file.open(path_), "");
    tsyn::CaptureFrame frame;
    ASSERT_TRUE(file.next(frame));
    EXPECT_EQ(frame.number, 1U);
    EXPECT_EQ(frame.timeNs, 1700000000123456789ULL);
    EXPECT_EQ(Bytes(frame.bytes, frame.bytes + frame.captured), securedFollowUp());
    EXPECT_FALSE(file.next(frame));
    EXPECT_EQ(file.error(), "");
}

TEST_F(CaptureFileTest, StatusTellsRightFromWrong) {
    write({securedFollowUp()});
    testing::internal::CaptureStdout();
    EXPECT_EQ(check(), 0);
    EXPECT_EQ(check("00000000000000000000000000000000"), 1);
    const std::string text = testing::internal::GetCapturedStdout();
    EXPECT_NE(text.find("no findings"), std::string::npos) << text;
    EXPECT_NE(text.find("UserData Secured: CRC_UserData is 0x"), std::string::npos) << text;
}

TEST_F(CaptureFileTest, UnreadableFilesGiveOneLine) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(check(), 2);
    write({securedFollowUp()}, DLT_LINUX_SLL);
    EXPECT_EQ(check(), 2);
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_NE(text.find("No such file"), std::string::npos) << text;
    EXPECT_NE(text.find("LINUX_SLL frames, not Ethernet"), std::string::npos) << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
}

TEST_F(CaptureFileTest, CutFileIsReportedAfterItsWholeFrames) {
    write({securedFollowUp(), securedFollowUp()});
    ASSERT_EQ(truncate(path_.c_str(), 24 + 16 + 116 + 20), 0);
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    EXPECT_EQ(check(), 2);
    EXPECT_NE(testing::internal::GetCapturedStdout().find(": 1 frames"), std::string::npos);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("beyond frame 1"), std::string::npos);
}

}  // namespace
