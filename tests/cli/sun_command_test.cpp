#include "cli/command.h"

#include <gtest/gtest.h>
#include <sstream>

namespace lumivesper::cli {
namespace {

struct Run {
    int exitCode;
    std::string out;
    std::string err;
};

Run runSunWith(std::vector<std::string> arguments) {
    std::ostringstream out;
    std::ostringstream err;
    const int code = runSun(CommandContext{std::move(arguments), out, err});
    return {code, out.str(), err.str()};
}

TEST(SunCommandTest, PrintsAltitudeAndAzimuthToThreeDecimals) {
    auto noon = runSunWith({"--lat", "40", "--lon", "0", "--time", "2024-03-20T12:00:00Z"});
    EXPECT_EQ(noon.exitCode, exitSuccess);
    EXPECT_EQ(noon.out, "altitude 50.112\nazimuth 177.157\n");

    auto evening = runSunWith({"--lat", "40", "--lon", "0", "--time", "2024-03-20T18:00:00Z"});
    EXPECT_EQ(evening.out, "altitude 1.540\nazimuth 269.028\n");
}

TEST(SunCommandTest, OffsetsAndNamedZonesNameTheSameInstant) {
    auto offset = runSunWith({"--lat", "40", "--lon", "0", "--time", "2024-03-20T13:30:00+01:30"});
    EXPECT_EQ(offset.out, "altitude 50.112\nazimuth 177.157\n");
    // 13:00 in Paris on the equinox is 12:00 UTC (winter time).
    auto zoned = runSunWith(
        {"--lat", "40", "--lon", "0", "--time", "2024-03-20T13:00:00", "--tz", "Europe/Paris"});
    EXPECT_EQ(zoned.exitCode, exitSuccess) << zoned.err;
    EXPECT_EQ(zoned.out, "altitude 50.112\nazimuth 177.157\n");
}

TEST(SunCommandTest, BadArgumentsAreUsageErrorsWithAMessage) {
    const std::vector<std::vector<std::string>> bad = {
        {"--lat", "40"},
        {"--lat", "north", "--lon", "0"},
        {"--lat", "91", "--lon", "0"},
        {"--lat", "40", "--lon", "0", "--time", "yesterday"},
        {"--lat", "40", "--lon", "0", "--tz", "Mars/Olympus"},
        {"--lat", "40", "--lon", "0", "--bogus"},
        {"--lat"},
    };
    for (const auto& arguments : bad) {
        auto run = runSunWith(arguments);
        EXPECT_EQ(run.exitCode, exitUsage) << arguments.back();
        EXPECT_FALSE(run.err.empty());
        EXPECT_TRUE(run.out.empty());
    }
    EXPECT_EQ(runSunWith({"--help"}).exitCode, exitSuccess);
}

} // namespace
} // namespace lumivesper::cli
