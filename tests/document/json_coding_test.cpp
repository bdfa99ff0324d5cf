#include "document/json_coding.h"

#include <gtest/gtest.h>

namespace lumivesper::document {
namespace {

using nlohmann::json;

const char* const imageId = "E621E1F8-C36C-495A-93FC-0C247A3E6E5F";

json minimalImage() {
    return json{{"id", imageId}, {"fileName", "noon.png"}, {"isTween", false}};
}

json minimalProject() {
    return json{{"version", "1.0"}, {"mode", "time"}, {"images", json::array({minimalImage()})}};
}

class ImageCodingTest : public ::testing::Test {};

TEST_F(ImageCodingTest, WritesExactlyTheStoredKeysWithZerosPresentAndNoneAbsent) {
    WallpaperImage image;
    image.id = *Uuid::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f");
    image.fileName = "noon.png";
    image.altitude = 0.0;
    image.azimuth = 0.0;
    image.sourcePath = "/tmp/noon.png";
    image.timeOfDay = 12;

    const json written = image;
    EXPECT_EQ(written.at("id"), imageId); // upper-case
    EXPECT_EQ(written.at("altitude"), 0.0);
    EXPECT_EQ(written.at("azimuth"), 0.0);
    for (const char* absent :
         {"isLight", "parentId", "tweenCount", "sourcePath", "timeOfDay", "thumbnail"})
        EXPECT_FALSE(written.contains(absent)) << absent;
    EXPECT_EQ(written.size(), 5u);
    EXPECT_EQ(written.dump().find("null"), std::string::npos);
}

TEST_F(ImageCodingTest, RoundTripsOptionalsAndIgnoresUnknownKeys) {
    json stored = minimalImage();
    stored["isLight"] = false;
    stored["isTween"] = true;
    stored["parentId"] = imageId;
    stored["tweenCount"] = 4;
    stored["sourcePath"] = "/not/read.png";
    stored["futureKey"] = {1, 2};

    const auto image = stored.get<WallpaperImage>();
    EXPECT_EQ(image.isLight, false);
    EXPECT_TRUE(image.isTween);
    EXPECT_EQ(image.parentId->toString(), imageId);
    EXPECT_EQ(image.tweenCount, 4);
    EXPECT_FALSE(image.sourcePath.has_value());
    EXPECT_FALSE(image.altitude.has_value());

    const json again = image;
    EXPECT_EQ(again.at("tweenCount"), 4);
    EXPECT_FALSE(again.contains("futureKey"));
}

TEST_F(ImageCodingTest, RequiredKeysAndTypesAreStrict) {
    for (const char* key : {"id", "fileName", "isTween"}) {
        json stored = minimalImage();
        stored.erase(key);
        EXPECT_THROW(stored.get<WallpaperImage>(), DecodingError) << key;
    }
    json badId = minimalImage();
    badId["id"] = "not-a-uuid";
    EXPECT_THROW(badId.get<WallpaperImage>(), DecodingError);
    json badAltitude = minimalImage();
    badAltitude["altitude"] = "high";
    EXPECT_THROW(badAltitude.get<WallpaperImage>(), DecodingError);
    json stringTween = minimalImage();
    stringTween["isTween"] = "false";
    EXPECT_THROW(stringTween.get<WallpaperImage>(), DecodingError);
}

class ProjectCodingTest : public ::testing::Test {};

TEST_F(ProjectCodingTest, AnImageWithoutIsTweenFailsTheWholeProject) {
    json stored = minimalProject();
    stored["images"][0].erase("isTween");
    EXPECT_THROW(stored.get<Project>(), DecodingError);
}

TEST_F(ProjectCodingTest, OnlyTimeAndAppearanceAreModes) {
    json stored = minimalProject();
    stored["mode"] = "solar";
    EXPECT_THROW(stored.get<Project>(), DecodingError);
    stored["mode"] = "appearance";
    EXPECT_EQ(stored.get<Project>().mode, WallpaperMode::appearance);
}

TEST_F(ProjectCodingTest, AbsentMagicFieldsDecodeAsNoneAndAnyVersionIsAccepted) {
    json stored = minimalProject();
    stored["version"] = "7.3-beta";
    const auto project = stored.get<Project>();
    EXPECT_FALSE(project.magicSize.has_value());
    EXPECT_FALSE(project.magicTweenCount.has_value());
    EXPECT_EQ(project.images.size(), 1u);
}

TEST_F(ProjectCodingTest, DefaultMagicValuesAreNeverWritten) {
    const json defaults = makeProject(WallpaperMode::time, {}, "", "1024x576", 3, "");
    EXPECT_EQ(defaults.size(), 3u); // version, mode, images
    EXPECT_EQ(defaults.at("version"), "1.0");

    const json custom = makeProject(WallpaperMode::time, {}, "fjord", "1536x1024", 0, "a.png");
    EXPECT_EQ(custom.at("magicPrompt"), "fjord");
    EXPECT_EQ(custom.at("magicSize"), "1536x1024");
    EXPECT_EQ(custom.at("magicTweenCount"), 0);
    EXPECT_EQ(custom.at("magicStartingImageFileName"), "a.png");
}

TEST(RecentProjectCodingTest, DatesAreSecondsSince2001) {
    RecentProject recent{"/home/u/Day.lvesper", "Day",
                         std::chrono::system_clock::from_time_t(978307200 + 100)};
    const json written = recent;
    EXPECT_DOUBLE_EQ(written.at("lastOpened").get<double>(), 100.0);
    EXPECT_EQ(written.get<RecentProject>(), recent);

    json missing = written;
    missing.erase("displayName");
    EXPECT_THROW(missing.get<RecentProject>(), DecodingError);
}

TEST(RecentProjectCodingTest, DisplayNameFallsBackToTheWholeComponent) {
    EXPECT_EQ(recentDisplayName("/home/u/Day.lvesper"), "Day");
    EXPECT_EQ(recentDisplayName("/home/u/.lvesper"), ".lvesper");
    EXPECT_EQ(recentDisplayName("/home/u/Day.lvesper/"), "Day");
}

} // namespace
} // namespace lumivesper::document
