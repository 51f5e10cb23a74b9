#include "timebase/PartialRegressionLine.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/StdoutCapture.h"
#include "tests/support/Vectors.h"

namespace {

using Reading = std::pair<unsigned long long, unsigned long long>;

/** What a call prints; the samples before it stay in the file under test, so each case of this
 *  file needs a process of its own. */
std::string feed(Reading reading) {
    const StdoutCapture output;
    PartialRegressionLine(reading.first, reading.second);
    return output.text();
}

void expectLine(unsigned long long x, unsigned long long y, long long mZ, long long mN) {
    EXPECT_EQ(x, slope_x);
    EXPECT_EQ(y, slope_y);
    EXPECT_EQ(mZ, slope_mZ);
    EXPECT_EQ(mN, slope_mN);
}

/** The calls of the long sequences that their vectors leave out. */
Reading usualReading(const std::string& sequence, unsigned long long k) {
    if (sequence.rfind("full ring", 0) == 0) {
        return {1000000000 + k * 1000000, 5000000000 + k * 1000000};
    }
    if (sequence.rfind("100 ppm", 0) == 0) {
        return {k * 125000000, 3000 + k * 125012500};
    }
    return {1700000000000000000 + k * 1000000000,
            1600000000000000000 + k * 1000050000 + k % 3 * 40};
}

/** Plays a sequence and checks the calls that the vector describes. */
void play(const nlohmann::json& sequence) {
    unsigned long long fed = 0;
    for (const nlohmann::json& call : sequence.at("calls")) {
        const unsigned long long number = call.value("call", fed + 1);
        for (; fed + 1 < number; ++fed) {
            feed(usualReading(sequence.at("name"), fed));
        }
        SCOPED_TRACE(call.dump());
        EXPECT_EQ(
            call.at("line1").get<std::string>() + "\n" + call.at("line2").get<std::string>() + "\n",
            feed({toU64(call.at("t")), toU64(call.at("u"))}));
        expectLine(toU64(call.at("slope_x")), toU64(call.at("slope_y")), toS64(call.at("slope_mZ")),
                   toS64(call.at("slope_mN")));
        ++fed;
    }
}

class FittedSequence : public testing::TestWithParam<int> {};

TEST_P(FittedSequence, PrintsAndFitsAsItsVectorTells) {
    const nlohmann::json& sequences = vectors("PartialRegressionLine");
    ASSERT_EQ(12U, sequences.size());
    play(sequences.at(static_cast<std::size_t>(GetParam())));
}

INSTANTIATE_TEST_SUITE_P(Vector, FittedSequence, testing::Range(0, 12));

TEST(FittedLine, IsTheIdentityWithoutSamples) {
    expectLine(0, 0, 1, 1);
}

TEST(FittedLine, StaysTheIdentityAfterOneSample) {
    EXPECT_EQ("t_org=500 u_org=900  slope_y=0 m=-0.000000\nm=1\n", feed({500, 900}));
    expectLine(0, 0, 1, 1);
}

TEST(FittedLine, HasSlopeOneThroughTwoSamplesOfEqualDistance) {
    feed({2000, 7000});
    feed({1000, 6000});
    expectLine(1000, 6000, 1, 1);
}

TEST(FittedLine, OriginIsTheSmallestReadingOfEachClockByItself) {
    feed({1000, 9000});
    feed({3000, 8000});
    EXPECT_EQ(1000U, slope_x);
    expectLine(1000, 9000, -1, 2);
}

TEST(FittedLine, KeepsAReducedFraction) {
    feed({0, 0});
    feed({4000, 2000});
    expectLine(0, 0, 1, 2);
}

TEST(FittedLine, RoundsReadingsTo20NsHalvesUp) {
    feed({1009, 2029});  // 1000 and 2020
    feed({1030, 2050});  // 1040 and 2060
    expectLine(1000, 2020, 1, 1);
}

TEST(FittedLine, PrintsWhatItWasBeforeTheSample) {
    feed({0, 7000});
    feed({400, 7200});
    EXPECT_EQ("t_org=800 u_org=7400  slope_y=7000 m=-0.000000\nm=2\n", feed({800, 7400}));
}

TEST(FittedLine, FlushesWhatItPrints) {
    const StdoutCapture output;
    PartialRegressionLine(500, 900);
    EXPECT_NE(std::string::npos, output.writtenText().find("m=1\n"));
}

TEST(FittedLine, PrintsNoNumberForTheSignificandOfANearOne) {
    slope_mZ = 9999;
    slope_mN = 10000;
    EXPECT_EQ("t_org=0 u_org=0  slope_y=0 m=-nan\nm=1.0001\n", feed({0, 0}));
}

TEST(FittedLine, OfEqualReadingsOfTheReferenceClockStaysAsItWas) {
    feed({1000, 5000});
    feed({1000, 6000});
    expectLine(0, 0, 1, 1);
    feed({1005, 7000});  // the same unit of 20 ns
    expectLine(0, 0, 1, 1);
}

TEST(FittedLine, OfEqualReadingsOfTheOtherClockIsFlat) {
    feed({0, 5000});
    feed({2000, 5000});
    expectLine(0, 5000, 0, 1);
}

/** A full ring on the line u = t + 4 s, 1 ms apart. */
class FullRing : public testing::Test {
protected:
    FullRing() {
        for (; next_ < 20; ++next_) {
            feed(usualReading("full ring", next_));
        }
    }

    void feedOffBy(long long ns) {
        const Reading usual = usualReading("full ring", next_++);
        feed({usual.first, usual.second + static_cast<unsigned long long>(ns)});
    }

    static bool isUnchanged() {
        return slope_x == 1000000000 && slope_y == 5000000000 && slope_mZ == 1 && slope_mN == 1;
    }

private:
    unsigned long long next_ = 0;
};

TEST_F(FullRing, TakesASample2999NsOffWithoutARefit) {
    feedOffBy(2999);
    EXPECT_TRUE(isUnchanged());
    feedOffBy(-2999);
    EXPECT_TRUE(isUnchanged());
}

TEST_F(FullRing, RefitsFrom3000NsOn) {
    feedOffBy(3000);
    EXPECT_FALSE(isUnchanged());
}

TEST_F(FullRing, RefitsFrom3000NsBelowOn) {
    feedOffBy(-3000);
    EXPECT_FALSE(isUnchanged());
}

TEST_F(FullRing, RefitsUpTo24000Ns) {
    feedOffBy(24000);
    EXPECT_FALSE(isUnchanged());
}

TEST_F(FullRing, Discards24001Ns) {
    feedOffBy(24001);
    EXPECT_TRUE(isUnchanged());
    feedOffBy(-24001);
    EXPECT_TRUE(isUnchanged());
}

TEST_F(FullRing, AReadingBeforeTheOriginIsAnOutlier) {
    // 10 us off the line, which calls for a refit where the distance is signed.
    feed({999000000, 4999010000});
    EXPECT_TRUE(isUnchanged());
}

TEST_F(FullRing, JudgesReadingsOfTheOtherClockUnsigned) {
    slope_y = 18446744073709551615U - 10000;
    feed({1000000000, 18446744073709551615U - 10000 + 4000});
    EXPECT_NE(18446744073709551615U - 10000, slope_y) << "no refit";
}

TEST_F(FullRing, JudgesWithMoreDigitsThanADoubleHas) {
    // 3,000 ns at a distance of 2^62 ns, where doubles are 512 ns apart.
    slope_x = 0;
    slope_y = 0;
    feed({4611686018427387904, 4611686018427387904 + 2999});
    EXPECT_EQ(0U, slope_y);
    feed({4611686018427387904, 4611686018427387904 + 3000});
    EXPECT_NE(0U, slope_y);
}

TEST_F(FullRing, JudgesByTheSlope) {
    slope_mZ = 2;
    feed({1001000000, 5002004000});
    EXPECT_NE(2, slope_mZ) << "no refit";
}

TEST_F(FullRing, ADiscardedSampleIsOverwrittenByTheNext) {
    feedOffBy(0);
    feedOffBy(1000000);
    feedOffBy(0);
    // Had the outlier stayed, this refit would show it.
    feedOffBy(3000);
    EXPECT_LT(slope_mZ * 1000 / slope_mN, 1001);
    EXPECT_GT(slope_mZ * 1000 / slope_mN, 999);
}

}  // namespace
