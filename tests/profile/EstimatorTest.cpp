#include "profile/Estimator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace {

using estimator::fit;
using estimator::Line;
using estimator::Reading;
using estimator::Tracker;
using estimator::Verdict;

constexpr unsigned long long kStart = 1767225600000000000ULL;
constexpr unsigned long long kSyncPeriodNs = 125000000;

/** Two clocks of which the second is faster by rate and ahead by ahead, with rounded stamps. */
class Clocks {
public:
    explicit Clocks(double rate, unsigned seed = 1) : rate_(rate), random_(seed) {}

    unsigned long long trueY(unsigned long long x) const {
        const auto gain =
            static_cast<long long>(std::floor(rate_ * static_cast<double>(x - kStart) + 0.5));
        return x + ahead + static_cast<unsigned long long>(gain);
    }

    Reading next(long long error = 0) {
        now += kSyncPeriodNs;
        std::uniform_int_distribution<int> noise(-8, 8);
        const unsigned long long y =
            trueY(now) + static_cast<unsigned long long>(noise(random_) + error);
        return {now, y, 0};
    }

    unsigned long long now = kStart;
    unsigned long long ahead = 987654321;

private:
    double rate_;
    std::mt19937 random_;
};

Tracker settled(Clocks& clocks, int readings = 20) {
    Tracker tracker;
    for (int i = 0; i < readings; ++i) {
        tracker.take(clocks.next());
    }
    return tracker;
}

double errorOf(const Tracker& tracker, const Clocks& clocks, unsigned long long later = 0) {
    const unsigned long long x = clocks.now + later;
    return static_cast<double>(static_cast<long long>(tracker.line().at(x) - clocks.trueY(x)));
}

TEST(Line, LeadsThereAndBackWithinOneNanosecond) {
    const Line line{kStart, kStart + 5, 0.25, -37e-6, 0, 0, 0, 0};
    for (unsigned long long ahead = 0; ahead < 1000000000000ULL; ahead += 12345678901ULL) {
        const unsigned long long y = line.at(kStart + ahead);
        EXPECT_LE(std::llabs(static_cast<long long>(line.inverse(y) - kStart - ahead)), 1);
    }
}

TEST(Fit, OfReadingsOnALineIsThatLine) {
    Reading readings[4];
    for (unsigned long long i = 0; i < 4; ++i) {
        readings[i] = {kStart + i * 1000000, 7 + i * 1000100, 0};
    }
    const Line line = fit(readings, 4, 0, 1);
    EXPECT_NEAR(100e-6, line.slope, 1e-12);
    EXPECT_EQ(7U + 5 * 1000100, line.at(kStart + 5000000));
}

TEST(Fit, LeavesOutWhatIsFarFromMostReadings) {
    Reading readings[6];
    for (unsigned long long i = 0; i < 6; ++i) {
        readings[i] = {kStart + i * kSyncPeriodNs, kStart + i * kSyncPeriodNs, 0};
    }
    readings[2].y += 700;
    readings[5].y -= 700;
    EXPECT_EQ(readings[4].y + kSyncPeriodNs, fit(readings, 6, 0, 1).at(readings[5].x));
}

/** The readings that lie near the line of the median slope, told the long way. */
std::vector<Reading> nearOnes(const std::vector<Reading>& readings) {
    const auto offset = [&](const Reading& each) {
        return static_cast<double>(static_cast<long long>(each.y - each.x - kStart));
    };
    const auto place = [](const Reading& each) { return static_cast<double>(each.x - kStart); };
    const auto middleOf = [](std::vector<double> values) {
        std::sort(values.begin(), values.end());
        return (values[(values.size() - 1) / 2] + values[values.size() / 2]) / 2;
    };
    std::vector<double> slopes;
    for (const Reading& a : readings) {
        for (const Reading& b : readings) {
            if (a.x < b.x) {
                slopes.push_back((offset(b) - offset(a)) / (place(b) - place(a)));
            }
        }
    }
    std::vector<double> lifts;
    lifts.reserve(readings.size());
    for (const Reading& each : readings) {
        lifts.push_back(offset(each) - middleOf(slopes) * place(each));
    }
    std::vector<double> distances;
    distances.reserve(lifts.size());
    for (const double lift : lifts) {
        distances.push_back(std::fabs(lift - middleOf(lifts)));
    }
    const double limit = std::max(60.0, 3 * 1.4826 * middleOf(distances));
    std::vector<Reading> near;
    for (std::size_t i = 0; i < readings.size(); ++i) {
        if (distances[i] <= limit) {
            near.push_back(readings[i]);
        }
    }
    return near;
}

/** Noise of any width, from none to more than a reading may be off by, and now and then an outlier:
 *  what has a part in the line is what has one by definition. */
TEST(Fit, LeavesOutTheSameOnesByAnyWay) {
    std::mt19937 random(1);
    for (int width = 0; width < 160; ++width) {
        std::vector<Reading> readings;
        unsigned long long x = kStart;
        for (int i = 0; i < 16; ++i) {
            const unsigned long long outlier = random() % 8 == 0 ? 70 : 0;
            const unsigned long long noise = random() % static_cast<unsigned>(width + 1);
            x += kSyncPeriodNs + random() % 50000;  // none lies exactly on a limit then
            readings.push_back({x, kStart + x + (x - kStart) / 50000 + noise + outlier, 0});
        }
        const std::vector<Reading> near = nearOnes(readings);
        double sum = 0;
        const Line line = fit(readings.data(), 16, 0, 1);
        for (const Reading& each : near) {
            sum += line.above(each);
        }
        // Least squares leave nothing over of those that they went through.
        EXPECT_NEAR(0, sum, 1e-3) << width << ": " << near.size() << " of 16";
    }
}

TEST(Fit, TrustsANarrowBracketMoreThanWideOnes) {
    Reading readings[4];
    for (unsigned long long i = 0; i < 4; ++i) {
        readings[i] = {kStart + i * kSyncPeriodNs, kStart + i * kSyncPeriodNs + (i % 2) * 40,
                       i % 2 != 0 ? 400.0 : 100.0};
    }
    const double above = static_cast<double>(
        static_cast<long long>(fit(readings, 4, 0, 1).at(readings[3].x) - readings[3].x));
    EXPECT_LT(std::fabs(above), 10);
}

TEST(Tracker, IsWithinTheRoundingOfStampsAndItsDoubt) {
    for (unsigned seed = 1; seed <= 50; ++seed) {
        Clocks clocks(-37e-6, seed);
        Tracker tracker = settled(clocks);
        for (int i = 0; i < 100; ++i) {
            EXPECT_EQ(Verdict::kTaken, tracker.take(clocks.next()));
            EXPECT_LE(std::fabs(errorOf(tracker, clocks, kSyncPeriodNs)), 12);
            EXPECT_LE(std::fabs(errorOf(tracker, clocks)), 1.5 * tracker.line().residual + 2);
        }
    }
}

TEST(Tracker, HasARateFromTheSecondReadingAndReliesOnItFromTheThird) {
    Clocks clocks(80e-6);
    Tracker tracker;
    tracker.take(clocks.next());
    EXPECT_FALSE(tracker.hasRate());
    tracker.take(clocks.next());
    EXPECT_TRUE(tracker.hasRate());
    EXPECT_FALSE(tracker.isReliable());
    tracker.take(clocks.next());
    EXPECT_TRUE(tracker.isReliable());
    EXPECT_NEAR(80e-6, tracker.line().slope, 0.2e-6);
}

TEST(Tracker, RefusesASingleOutlierAndGoesOn) {
    Clocks clocks(37e-6);
    Tracker tracker = settled(clocks);
    EXPECT_EQ(Verdict::kRefused, tracker.take(clocks.next(20000)));
    EXPECT_EQ(1, tracker.refusedInARow());
    EXPECT_LE(std::fabs(errorOf(tracker, clocks)), 12);
    EXPECT_EQ(Verdict::kTaken, tracker.take(clocks.next()));
    EXPECT_EQ(0, tracker.refusedInARow());
}

TEST(Tracker, RefusesOutliersThatDoNotAgree) {
    Clocks clocks(37e-6);
    Tracker tracker = settled(clocks);
    for (long long i = 1; i < 20; ++i) {
        EXPECT_EQ(Verdict::kRefused, tracker.take(clocks.next(i * i * 100000)));
    }
    EXPECT_LE(std::fabs(errorOf(tracker, clocks)), 1000);
}

TEST(Tracker, FollowsAStepWithItsThirdReading) {
    Clocks clocks(37e-6);
    Tracker tracker = settled(clocks);
    clocks.ahead -= 1000000000;
    EXPECT_EQ(Verdict::kRefused, tracker.take(clocks.next()));
    EXPECT_EQ(Verdict::kRefused, tracker.take(clocks.next()));
    EXPECT_EQ(Verdict::kFollowed, tracker.take(clocks.next()));
    EXPECT_NEAR(-1e9, tracker.lastStep(), 100);
    EXPECT_LE(std::fabs(errorOf(tracker, clocks)), 16);
}

TEST(Tracker, FollowsAClockOverItsOwnSettingBack) {
    Clocks clocks(0);
    Tracker tracker = settled(clocks);
    clocks.now -= 50 * kSyncPeriodNs;
    tracker.take(clocks.next(9000000));
    tracker.take(clocks.next(9000000));
    EXPECT_EQ(Verdict::kFollowed, tracker.take(clocks.next(9000000)));
}

TEST(Tracker, DoesNotBelieveARateBeyondAnyClocks) {
    Clocks slow(0);
    Clocks fast(300e-6);
    Tracker tracker = settled(slow);
    fast.now = slow.now;
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(Verdict::kRefused, tracker.take(fast.next(1000000)));
    }
}

TEST(Tracker, KeepsItsRateOverASilence) {
    Clocks clocks(37e-6);
    Tracker tracker = settled(clocks);
    clocks.now += 20 * kSyncPeriodNs;
    EXPECT_EQ(Verdict::kTaken, tracker.take(clocks.next()));
    EXPECT_TRUE(tracker.isReliable());
    EXPECT_NEAR(37e-6, tracker.line().slope, 0.1e-6);
    EXPECT_LE(std::fabs(errorOf(tracker, clocks, kSyncPeriodNs)), 30);
}

TEST(Tracker, TakesNoRateFromTwoReadingsAtNearlyOnePlaceAfterASilence) {
    Clocks clocks(37e-6);
    Tracker tracker = settled(clocks);
    clocks.now += 5000000000;
    tracker.take(clocks.next(-8));
    clocks.now -= kSyncPeriodNs - 60000;
    tracker.take(clocks.next(8));
    EXPECT_NEAR(0, errorOf(tracker, clocks, kSyncPeriodNs), 60);
}

/** With readings of a host that looked each second while the master was silent, and each Sync
 * since: another silence is one all the same, and what was read before it tells little of the time
 * now. */
TEST(Tracker, IsWithinItsDoubtAfterASilenceThatFollowsSlowReadings) {
    Clocks clocks(37e-6);
    Tracker tracker;
    const auto read = [&](unsigned long long later) {
        clocks.now += later - kSyncPeriodNs;
        Reading reading = clocks.next();
        reading.doubt = 60;
        tracker.take(reading);
    };
    for (int i = 0; i < 4; ++i) {
        read(8 * kSyncPeriodNs);
    }
    for (int i = 0; i < 4; ++i) {
        read(kSyncPeriodNs);
    }
    clocks.ahead += 120;  // of an oscillator that wandered meanwhile
    for (int i = 0; i < 8; ++i) {
        read(i == 0 ? 20 * kSyncPeriodNs : kSyncPeriodNs);
        ASSERT_LE(std::fabs(errorOf(tracker, clocks)), 30);
        ASSERT_LE(std::fabs(errorOf(tracker, clocks)), tracker.line().tightest);
    }
}

TEST(Tracker, CoversALatestReadingThatItLeavesOutAndFollowsTheThird) {
    Clocks clocks(37e-6);
    Tracker tracker = settled(clocks);
    clocks.ahead += 150;
    for (int i = 1; i <= 3; ++i) {
        Reading reading = clocks.next();
        reading.doubt = 60;
        EXPECT_EQ(Verdict::kTaken, tracker.take(reading));
        EXPECT_LE(std::fabs(errorOf(tracker, clocks)), tracker.line().tightest) << i;
    }
    EXPECT_LE(std::fabs(errorOf(tracker, clocks)), 16);
}

/** Two brackets that are off by what makes them wide. */
TEST(Tracker, KeepsTheRateThatItKnewWhereTwoReadingsTellLess) {
    Clocks clocks(37e-6);
    Tracker tracker = settled(clocks);
    clocks.now += 20 * kSyncPeriodNs;
    Reading first = clocks.next(-50);
    first.doubt = 60;
    Reading second = clocks.next(50);
    second.doubt = 160;
    tracker.take(first);
    tracker.take(second);
    EXPECT_NEAR(37e-6, tracker.line().slope, tracker.line().slopeDoubt);
    EXPECT_NEAR(37e-6, tracker.line().slope, 0.5e-6);
}

TEST(Tracker, TakesTwoThatComeAtOnceAfterASilenceForOne) {
    Clocks clocks(37e-6);
    Tracker tracker = settled(clocks);
    clocks.now += 20 * kSyncPeriodNs;
    EXPECT_EQ(Verdict::kTaken, tracker.take(clocks.next()));
    clocks.now -= kSyncPeriodNs - 60000;
    EXPECT_EQ(Verdict::kRepeated, tracker.take(clocks.next()));
    EXPECT_EQ(Verdict::kTaken, tracker.take(clocks.next()));
    EXPECT_NEAR(37e-6, tracker.line().slope, 0.2e-6);
}

TEST(Tracker, TakesARepeatedReadingOnce) {
    Clocks clocks(0);
    Tracker tracker = settled(clocks);
    EXPECT_EQ(Verdict::kRepeated, tracker.take(tracker.last()));
}

TEST(Tracker, FollowsAnOscillatorThatWarmsUp) {
    Tracker tracker;
    double worst = 0;
    for (unsigned long long i = 0; i < 200; ++i) {
        const double seconds = static_cast<double>(i) * 0.125;
        const auto bend = static_cast<unsigned long long>(500 * seconds * seconds);
        const unsigned long long x = kStart + i * kSyncPeriodNs;
        tracker.take({x, x + bend, 0});
        worst = std::max(worst, std::fabs(tracker.line().above({x, x + bend, 0})));
    }
    EXPECT_LT(worst, 100);
}

TEST(Tracker, MovesAlongWhenAClockIsSet) {
    Clocks clocks(37e-6);
    Tracker tracker = settled(clocks);
    tracker.shift(0, 1000000000);
    clocks.ahead += 1000000000;
    EXPECT_EQ(Verdict::kTaken, tracker.take(clocks.next()));
    EXPECT_LE(std::fabs(errorOf(tracker, clocks)), 12);
}

}  // namespace
