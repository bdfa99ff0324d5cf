#include "desktop/gnome_background.h"
#include "desktop/sun_schedule.h"
#include "sun/solar_position.h"

#include <gtest/gtest.h>
#include <pugixml.hpp>

namespace lumivesper::desktop {
namespace {

using namespace std::chrono;

TEST(SunScheduleTest, FramesChangeWhereTheSunReachesThemAtThisPlaceAndDay) {
    const auto zone = sun::TimeZone::fixedOffset(3600);
    const Location munich{48.14, 11.58};
    const auto midnight = localMidnight(sys_days{2026y / November / 23} + hours(15), zone);
    EXPECT_EQ(midnight, sys_days{2026y / November / 22} + hours(23));

    // Three frames at the sun of this very day, given out of order, and one placed by the hour.
    const int moments[] = {15 * 3600 + 1200, 8 * 3600, 12 * 3600 + 600};
    std::vector<BackgroundFrame> frames;
    for (int second : moments) {
        const auto sun =
            *sun::solarPosition(midnight + seconds(second), zone, munich.latitude, munich.longitude);
        frames.push_back({"f" + std::to_string(second), sun.altitude, sun.azimuth, {}});
    }
    frames.push_back({"late", {}, {}, 22.5});
    const auto schedule = scheduleDay(frames, munich, midnight, zone);
    ASSERT_EQ(schedule.size(), 4u);
    const std::pair<std::size_t, int> expected[] = {
        {1, moments[1]}, {2, moments[2]}, {0, moments[0]}, {3, 22 * 3600 + 1800}};
    for (std::size_t n = 0; n < 4; ++n) {
        EXPECT_EQ(schedule[n].frame, expected[n].first) << n;
        EXPECT_NEAR(schedule[n].second, expected[n].second, 300) << n;
    }
    EXPECT_EQ(frameAt(schedule, 3600), 3u) << "before the first change, last night's frame";
    EXPECT_EQ(frameAt(schedule, 13 * 3600), 2u);
}

TEST(GnomeSlideshowTest, DurationsAddUpToADayAndFadesFitTheirGaps) {
    const std::vector<BackgroundFrame> frames{
        {"/a.png", {}, {}, {}}, {"/b & c.png", {}, {}, {}}, {"/d.png", {}, {}, {}}};
    const std::vector<std::vector<ScheduledChange>> schedules{
        {{0, 30000}},                        // one picture all day
        {{0, 0}, {1, 100}, {2, 50000}},      // a change at midnight, one 100 s gap
        {{2, 3600}, {0, 7200}, {1, 86399}}}; // the last change a second before midnight
    for (const auto& schedule : schedules) {
        pugi::xml_document document;
        const auto xml = gnomeSlideshowXml(frames, schedule, year{2026} / 11 / 23);
        ASSERT_TRUE(document.load_string(xml.c_str())) << xml;
        const auto root = document.child("background");
        EXPECT_EQ(root.child("starttime").child("day").text().as_int(), 23);
        double total = 0;
        int statics = 0;
        for (auto node : root.children()) {
            if (std::string(node.name()) == "starttime")
                continue;
            const double duration = node.child("duration").text().as_double();
            EXPECT_GT(duration, 0) << xml;
            total += duration;
            statics += std::string(node.name()) == "static";
        }
        EXPECT_DOUBLE_EQ(total, 86400.0) << xml;
        EXPECT_GE(statics, static_cast<int>(schedule.size()));
        if (schedule.size() > 1) {
            EXPECT_NE(xml.find("/b &amp; c.png"), std::string::npos);
        }
    }
}

} // namespace
} // namespace lumivesper::desktop
