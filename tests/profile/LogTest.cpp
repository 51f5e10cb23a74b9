#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <mutex>
#include <string>
#include <vector>

#include "tests/profile/EventDaemon.h"
#include "tests/support/PeerSocket.h"
#include "tests/support/StdoutCapture.h"

namespace {

/** What a host keeps of the log. */
struct Lines {
    struct Line {
        int level;
        std::string text;
    };
    static void take(int level, const char* line, void* context) {
        auto& self = *static_cast<Lines*>(context);
        const std::lock_guard<std::mutex> lock(self.mutex);
        self.lines.push_back({level, line});
    }
    int count(const std::string& part) {
        const std::lock_guard<std::mutex> lock(mutex);
        return static_cast<int>(std::count_if(lines.begin(), lines.end(), [&](const Line& line) {
            return line.text.find(part) != std::string::npos;
        }));
    }

    std::mutex mutex;
    std::vector<Line> lines;
};

TSynProfile profileWith(Lines& lines) {
    TSynProfile profile = eventProfile();
    profile.logSink = Lines::take;
    profile.logContext = &lines;
    return profile;
}

TEST(Log, ASinkGetsTheLinesInPlaceOfStandardOutput) {
    static Lines lines;
    testing::internal::CaptureStdout();
    const CardSandbox sandbox;
    const PeerSocket peer("tsm0peer");
    const ProfiledDaemon daemon(masterConfig(), profileWith(lines));
    ASSERT_TRUE(peer.awaitType(kSync));
    ZebEthTSynInterface_Stop();
    EXPECT_EQ(std::string::npos, testing::internal::GetCapturedStdout().find("Stopping"));
    ASSERT_EQ(1, lines.count("Stopping threads ..."));
    EXPECT_EQ(2, lines.lines.back().level);
    EXPECT_EQ(0U, lines.lines.back().text.find("[ALWAYS] ["));
    EXPECT_EQ(0, lines.count("\n"));
}

TEST(Log, LinesBelowTheThresholdAreLeftOut) {
    static Lines lines;
    const StdoutCapture output;
    const CardSandbox sandbox;
    TSynProfile profile = profileWith(lines);
    profile.logThreshold = 8;
    const ProfiledDaemon daemon(masterConfig(), profile);
    ZebEthTSynInterface_Stop();
    ZebEthTSynInterface_SetStatus(0, 9);
    EXPECT_EQ(0, lines.count("Stopping"));
    EXPECT_EQ(1, lines.count("Setting Invalid Status :0x9"));
}

TEST(Log, LinesOfOnePlaceAreCountedAndTheRestIsTold) {
    static Lines lines;
    const StdoutCapture output;
    const CardSandbox sandbox;
    const PeerSocket peer("tsm0peer");
    TSynProfile profile = profileWith(lines);
    profile.logLinesPerSecond = 3;
    const ProfiledDaemon daemon(masterConfig(), profile);
    peer.receive(std::chrono::seconds(1));
    for (int i = 0; i < 10; ++i) {
        ZebEthTSynInterface_SetStatus(0, 9);
    }
    EXPECT_EQ(3, lines.count("Setting Invalid Status"));
    // Told with a line of any place, here of the master's turns.
    EXPECT_TRUE(eventually([] { return lines.count("7 more lines were left out") == 1; }));
}

TEST(Log, NoLimitLeavesARefusalOut) {
    static Lines lines;
    const StdoutCapture output;
    const CardSandbox sandbox;
    TSynProfile profile = profileWith(lines);
    profile.logThreshold = 8;
    profile.logLinesPerSecond = 1;
    const ProfiledDaemon daemon(masterConfig(), profile);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(-1, ZebEthTSynInterface_SetProfile(&profile));
    }
    EXPECT_EQ(10, lines.count("Profile refused: the threads have started"));
}

TEST(Log, AProfileSetBeforeCreateGovernsTheLogOfCreate) {
    static Lines lines;
    const StdoutCapture output;
    const CardSandbox sandbox;
    const TSynProfile profile = profileWith(lines);
    const TSynInstanceConfig config = masterConfig();
    DbgTraceLevel = 0;
    EXPECT_EQ(0, ZebEthTSynInterface_SetProfile(&profile));
    EXPECT_EQ(0, ZebEthTSynInterface_Create(&config));
    EXPECT_EQ(1, lines.count("Creating instance for interface: tsm0"));
    EXPECT_EQ(0, ZebEthTSynInterface_Start(0, nullptr, nullptr));
    EXPECT_EQ(std::vector<std::string>{"TSyn_Main"}, daemonThreads()) << "still the profile";
    ZebEthTSynInterface_Destroy();
    EXPECT_EQ("", output.text());
}

/** Standard output that is a pipe for the life of the object. */
class PipedOutput {
public:
    PipedOutput() {
        EXPECT_EQ(0, pipe(ends_));
        saved_ = dup(STDOUT_FILENO);
        dup2(ends_[1], STDOUT_FILENO);
        close(ends_[1]);
    }
    ~PipedOutput() {
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
        closeReader();
    }
    void fill() const {
        fcntl(STDOUT_FILENO, F_SETFL, O_NONBLOCK);
        const std::string page(4096, 'x');
        while (write(STDOUT_FILENO, page.data(), page.size()) > 0) {
        }
        fcntl(STDOUT_FILENO, F_SETFL, 0);
    }
    void closeReader() {
        if (ends_[0] >= 0) {
            close(ends_[0]);
            ends_[0] = -1;
        }
    }

private:
    int ends_[2]{};
    int saved_ = -1;
};

TSynProfile limitedProfile() {
    TSynProfile profile = eventProfile();
    profile.logLinesPerSecond = 1000;
    return profile;
}

TEST(Log, AFullPipeDoesNotStopSync) {
    PipedOutput output;
    const CardSandbox sandbox;
    const PeerSocket peer("tsm0peer");
    const ProfiledDaemon daemon(masterConfig(), limitedProfile());
    ASSERT_TRUE(peer.awaitType(kSync));
    output.fill();
    peer.drain();
    for (int i = 0; i < 20; ++i) {
        ASSERT_TRUE(peer.awaitType(kSync, std::chrono::seconds(1))) << i;
    }
}

TEST(Log, APipeWithoutReaderDoesNotEndTheProcess) {
    PipedOutput output;
    const CardSandbox sandbox;
    const PeerSocket peer("tsm0peer");
    const ProfiledDaemon daemon(masterConfig(), limitedProfile());
    ASSERT_TRUE(peer.awaitType(kSync));
    output.closeReader();
    ZebEthTSynInterface_Stop();
    ZebEthTSynInterface_Start(0, nullptr, nullptr);
    EXPECT_TRUE(peer.awaitType(kSync, std::chrono::seconds(1)));
}

}  // namespace
