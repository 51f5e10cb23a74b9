#include "tools/simulate/Units.h"

#include <gtest/gtest.h>

namespace {

using simulate::parseDuration;
using simulate::parseInstant;

TEST(Durations, HaveOneOrMoreNumbersWithUnits) {
    EXPECT_EQ(parseDuration("7ns"), 7u);
    EXPECT_EQ(parseDuration("1.5us"), 1'500u);
    EXPECT_EQ(parseDuration("500ms"), 500'000'000u);
    EXPECT_EQ(parseDuration("62 s"), 62'000'000'000u);
    EXPECT_EQ(parseDuration("2min"), 120'000'000'000u);
    EXPECT_EQ(parseDuration("1h 30min"), 5'400'000'000'000u);
    EXPECT_EQ(parseDuration(" 1d1s "), 86'401'000'000'000u);
    EXPECT_EQ(parseDuration("0s"), 0u);
}

TEST(Durations, WithoutUnitOrWithWrongOnesAreNone) {
    for (const char* text : {"", " ", "5", "s", "5 sec", "-1s", "1s-", "1e3s", "1.2.3s", ".s"}) {
        EXPECT_EQ(parseDuration(text), std::nullopt) << "'" << text << "'";
    }
}

TEST(Durations, EndBeforeTheyOverflow) {
    EXPECT_EQ(parseDuration("106751d"), 9'223'286'400'000'000'000u);
    EXPECT_EQ(parseDuration("106752d"), std::nullopt);
}

TEST(Durations, OfSecondsAreRoundedToNanoseconds) {
    EXPECT_EQ(simulate::durationOfSeconds(0.125), 125'000'000u);
    EXPECT_EQ(simulate::durationOfSeconds(1e-9), 1u);
    EXPECT_EQ(simulate::durationOfSeconds(-1.0), std::nullopt);
    EXPECT_EQ(simulate::durationOfSeconds(1e11), std::nullopt);
    EXPECT_EQ(simulate::durationOfSeconds(std::numeric_limits<double>::quiet_NaN()), std::nullopt);
}

TEST(Durations, AreToldWithoutNeedlessDecimals) {
    EXPECT_EQ(simulate::secondsText(12'000'000'000), "12 s");
    EXPECT_EQ(simulate::secondsText(500'000'000), "0.5 s");
    EXPECT_EQ(simulate::secondsText(10'000'000'001), "10.000000001 s");
    EXPECT_EQ(simulate::secondsText(0), "0 s");
}

TEST(Instants, CountFrom1970) {
    EXPECT_EQ(parseInstant("1970-01-01T00:00:00Z"), 0u);
    EXPECT_EQ(parseInstant("2026-01-01T00:00:00Z"), 1'767'225'600'000'000'000u);
    EXPECT_EQ(parseInstant("2038-01-19T03:14:07Z"), 2'147'483'647'000'000'000u);
    EXPECT_EQ(parseInstant("2106-02-07 06:28:16Z"), 4'294'967'296'000'000'000u);
    EXPECT_EQ(parseInstant("2000-02-29T12:00:00.25+01:30"), 951'820'200'250'000'000u);
}

TEST(Instants, ThatAreNoneAreRefused) {
    for (const char* text :
         {"", "2026", "2026-01-01", "2026-13-01T00:00:00Z", "2026-02-29T00:00:00Z",
          "2100-02-29T00:00:00Z", "2026-01-01T24:00:00Z", "2026-01-01T00:60:00Z",
          "2026-01-01T00:00:00", "2026-01-01T00:00:00Zx", "2026-01-01T00:00:00+1:00",
          "1969-12-31T23:59:59Z", "1970-01-01T00:00:00+01:00", "2262-01-01T00:00:00Z"}) {
        EXPECT_EQ(parseInstant(text), std::nullopt) << "'" << text << "'";
    }
}

}  // namespace
