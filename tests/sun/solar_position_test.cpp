#include "sun/hours.h"
#include "sun/presets.h"
#include "sun/solar_position.h"
#include "sun/solar_time_samples.h"

#include <chrono>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <utility>
#include <thread>
#include <vector>

namespace lumivesper::sun {
namespace {

using namespace std::chrono;

sys_seconds utcInstant(int y, unsigned mo, unsigned d, int h, int mi, int s) {
    return sys_days{year{y} / month{mo} / day{d}} + hours{h} + minutes{mi} + seconds{s};
}

struct SunCheck {
    int hour;
    double latitude;
    double longitude;
    double altitude;
    double azimuth;
};

class SolarPositionTest : public ::testing::TestWithParam<SunCheck> {};

TEST_P(SolarPositionTest, MatchesPublishedValuesToThreeDecimals) {
    const auto& check = GetParam();
    const auto position = *solarPosition(utcInstant(2024, 3, 20, check.hour, 0, 0), TimeZone::utc(),
                                        check.latitude, check.longitude);
    EXPECT_NEAR(position.altitude, check.altitude, 0.0005);
    EXPECT_NEAR(position.azimuth, check.azimuth, 0.0005);
}

INSTANTIATE_TEST_SUITE_P(EquinoxAtLatitude40, SolarPositionTest,
                         ::testing::Values(SunCheck{12, 40, 0, 50.112, 177.157},
                                           SunCheck{18, 40, 0, 1.540, 269.028}));

TEST(SolarTermsTest, EquationOfTimeAndDeclinationAtNoon) {
    SolarTerms terms;
    solarPosition(utcInstant(2024, 3, 20, 12, 0, 0), TimeZone::utc(), 40, 0, &terms);
    EXPECT_NEAR(terms.equationOfTimeMinutes, -7.291, 0.0005);
    EXPECT_NEAR(terms.declinationDegrees, 0.147, 0.0005);
}

TEST(SolarZoneTest, ZoneOnlyChangesTheClockReadingNotTheSun) {
    const auto instant = utcInstant(2024, 6, 1, 9, 30, 0);
    const auto utc = *solarPosition(instant, TimeZone::utc(), 48.85, 2.35);
    for (int offset : {3600, 19800 /* +5:30 */, -36000}) {
        const auto shifted = *solarPosition(instant, TimeZone::fixedOffset(offset), 48.85, 2.35);
        EXPECT_NEAR(shifted.altitude, utc.altitude, 1e-9) << offset;
        EXPECT_NEAR(shifted.azimuth, utc.azimuth, 1e-9) << offset;
    }
}

TEST(SolarEdgeTest, LongitudeMinus180And180AgreeAndPolesStayDefined) {
    const auto instant = utcInstant(2024, 12, 21, 3, 0, 0);
    const auto east = *solarPosition(instant, TimeZone::utc(), 10, 180);
    const auto west = *solarPosition(instant, TimeZone::utc(), 10, -180);
    EXPECT_NEAR(east.altitude, west.altitude, 1e-9);
    EXPECT_NEAR(east.azimuth, west.azimuth, 1e-9);
    for (double latitude : {90.0, -90.0}) {
        const auto pole = *solarPosition(instant, TimeZone::utc(), latitude, 0);
        EXPECT_TRUE(std::isfinite(pole.altitude));
        EXPECT_GE(pole.azimuth, 0.0);
        EXPECT_LT(pole.azimuth, 360.0);
    }
}

TEST(SolarEdgeTest, NonFiniteInputGivesNoPositionAndHugeLongitudesWrapAtOnce) {
    const auto instant = utcInstant(2024, 3, 20, 12, 0, 0);
    const double infinity = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::pair<double, double> nonFinite[] = {
        {40, infinity}, {40, -infinity}, {40, nan}, {infinity, 0}, {nan, 0}};
    for (const auto& [latitude, longitude] : nonFinite)
        EXPECT_FALSE(solarPosition(instant, TimeZone::utc(), latitude, longitude))
            << latitude << ", " << longitude;

    // 1e15 is 2777777777777 turns plus 280 degrees, that is -80; 4e15 minutes are still exact
    // in a double, only the equation of time loses a fraction of a minute to rounding.
    const std::pair<double, double> sameMeridian[] = {{1e15, -80}, {-1e15, 80}, {720, 0}};
    for (const auto& [huge, small] : sameMeridian) {
        const auto far = solarPosition(instant, TimeZone::utc(), 40, huge);
        const auto near = *solarPosition(instant, TimeZone::utc(), 40, small);
        ASSERT_TRUE(far) << huge;
        EXPECT_NEAR(far->altitude, near.altitude, 0.1) << huge;
        EXPECT_NEAR(far->azimuth, near.azimuth, 0.1) << huge;
    }
}

TEST(SolarEdgeTest, AzimuthStaysBelow360AroundSolarMidnight) {
    // Sweep a minute either side of local solar midnight at several places.
    for (int second = -90; second <= 90; ++second) {
        const auto instant = utcInstant(2024, 3, 20, 0, 7, 17) + seconds(second);
        const auto position = *solarPosition(instant, TimeZone::utc(), 40, 0);
        EXPECT_GE(position.azimuth, 0.0);
        EXPECT_LT(position.azimuth, 360.0);
    }
}

struct TableSample {
    double hour;
    double altitude;
    double azimuth;
};

TEST(ReferenceDayTest, HoldsThePublishedSamples) {
    const auto samples = solarTimeSamples();
    ASSERT_EQ(samples.size(), 288u);
    const TableSample expected[] = {{0.0, -50.015, 357.105}, {6.0, -1.379, 88.779},
                                    {9.0, 31.680, 121.012},  {12.0, 50.112, 177.157},
                                    {15.0, 34.107, 235.746}, {18.0, 1.540, 269.028},
                                    {21.0, -31.408, 301.347}};
    for (const auto& want : expected) {
        const auto& sample = samples[static_cast<std::size_t>(want.hour * 12)];
        EXPECT_DOUBLE_EQ(sample.hour, want.hour);
        EXPECT_NEAR(sample.altitude, want.altitude, 0.0005) << want.hour;
        EXPECT_NEAR(sample.azimuth, want.azimuth, 0.0005) << want.hour;
    }
    EXPECT_NEAR(samples[145].hour, 12.083, 0.0005);
    EXPECT_NEAR(samples[145].altitude, 50.145, 0.0005);
    EXPECT_NEAR(samples[145].azimuth, 179.107, 0.0005);

    auto highest = samples.begin();
    auto lowest = samples.begin();
    for (auto it = samples.begin(); it != samples.end(); ++it) {
        if (it->altitude > highest->altitude)
            highest = it;
        if (it->altitude < lowest->altitude)
            lowest = it;
    }
    EXPECT_NEAR(highest->hour, 12.083, 0.0005);
    EXPECT_NEAR(lowest->hour, 0.083, 0.0005);
}

TEST(ReferenceDayTest, FirstUseFromManyThreadsSeesOneTable) {
    std::vector<const SolarTimeSample*> seen(4);
    std::vector<std::jthread> threads;
    for (std::size_t i = 0; i < seen.size(); ++i)
        threads.emplace_back([&seen, i] { seen[i] = solarTimeSamples().data(); });
    threads.clear();
    for (auto* table : seen)
        EXPECT_EQ(table, seen.front());
}

TEST(EffectiveHourTest, FollowsTimeOfDayThenSunThenZero) {
    EXPECT_DOUBLE_EQ(effectiveHour(25.0, 60.0, 180.0), 1.0);
    EXPECT_DOUBLE_EQ(effectiveHour(-1.0, std::nullopt, std::nullopt), 23.0);
    EXPECT_DOUBLE_EQ(effectiveHour(std::nullopt, 30.0, std::nullopt), 0.0);
    EXPECT_DOUBLE_EQ(effectiveHour(std::nullopt, std::nullopt, std::nullopt), 0.0);
    EXPECT_NEAR(effectiveHour(std::nullopt, 0.0, 0.0), 19.750, 0.0005);
}

TEST(PresetsTest, EveryTimePresetSortsToItsDocumentedHour) {
    const double hours[] = {23.917, 5.000,  5.417,  5.917,  6.500, 8.083,
                            12.083, 16.167, 17.750, 18.167, 18.333};
    const auto presets = timePresets();
    ASSERT_EQ(presets.size(), std::size(hours));
    for (std::size_t i = 0; i < presets.size(); ++i)
        EXPECT_NEAR(approximateSolarHour(presets[i].altitude, presets[i].azimuth), hours[i], 0.0005)
            << presets[i].title;
    EXPECT_EQ(presets[9].title, "Sunset");
    EXPECT_EQ(presets[9].iconName, presets[8].iconName);
}

} // namespace
} // namespace lumivesper::sun
