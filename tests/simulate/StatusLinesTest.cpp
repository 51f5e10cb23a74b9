#include "tools/simulate/StatusLines.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "tools/simulate/Samples.h"

namespace {

/** A file that is gone with its scope. */
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& text = "") {
        close(mkstemp(path_.data()));
        std::ofstream(path_) << text;
    }
    ~TemporaryFile() { unlink(path_.c_str()); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::string& path() const { return path_; }
    std::string text() const {
        std::ostringstream text;
        text << std::ifstream(path_).rdbuf();
        return text.str();
    }

private:
    std::string path_ = "/tmp/simulate_test_XXXXXX";
};

TEST(StatusLines, LoseTheMemoryThatIsReal) {
    const TemporaryFile file(
        "{\"event\":\"status\",\"t_s\":1.5,\"rss_kib\":2040,\"z\":1}\n"
        "{\"event\":\"end\",\"duration_s\":2.25,\"rss_kib\":2044}\n{\"torn\":");
    const auto lines = simulate::readStatusLines(file.path(), 10.0);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].atS, 11.5);
    EXPECT_EQ(lines[1].atS, 12.25);
    simulate::writeStatusLines(file.path(), lines);
    EXPECT_EQ(
        file.text(),
        "{\"event\":\"status\",\"t_s\":1.5,\"z\":1}\n{\"event\":\"end\",\"duration_s\":2.25}\n");
}

TEST(StatusLines, GiveNumbersByTheirNames) {
    const auto fields =
        simulate::Json::parse(R"({"a": 5, "b": {"c": 2.5, "d": "x"}, "e": null, "f": true})");
    EXPECT_EQ(simulate::numberIn(fields, "a"), 5.0);
    EXPECT_EQ(simulate::numberIn(fields, "b.c"), 2.5);
    for (const char* name : {"b", "b.d", "a.c", "e", "f", "g", "g.h", ""}) {
        EXPECT_EQ(simulate::numberIn(fields, name), std::nullopt) << name;
    }
}

TEST(Samples, CountFromTheBeginningOfTheRun) {
    const TemporaryFile file(
        "t_s,error_ns,bracket_ns,valid\n0.250000,-7,120,0\n"
        "0.260000,5000000000,130,1\n0.27,12");
    const auto samples = simulate::readSamples(file.path(), 10.0);
    ASSERT_EQ(samples.size(), 2u);
    EXPECT_EQ(samples[0].errorNs, -7);
    EXPECT_FALSE(samples[0].valid);
    simulate::writeSamples(file.path(), samples);
    EXPECT_EQ(file.text(),
              "t_s,error_ns,bracket_ns,valid\n10.250000,-7,120,0\n"
              "10.260000,5000000000,130,1\n");
}

}  // namespace
