#include "settings/appcast.h"

#include <gtest/gtest.h>

namespace lumivesper::settings {
namespace {

struct VersionCase {
    const char* newer;
    const char* older;
};

class VersionOrderTest : public ::testing::TestWithParam<VersionCase> {};

TEST_P(VersionOrderTest, NewerComesAfterOlder) {
    EXPECT_GT(compareVersions(GetParam().newer, GetParam().older), 0);
    EXPECT_LT(compareVersions(GetParam().older, GetParam().newer), 0);
}

INSTANTIATE_TEST_SUITE_P(Cases, VersionOrderTest,
                         ::testing::Values(VersionCase{"2", "1"}, VersionCase{"10", "9"},
                                           VersionCase{"1.10", "1.9"}, VersionCase{"1.0.1", "1.0"},
                                           VersionCase{"1.0", "1.0b1"},
                                           VersionCase{"1.0b2", "1.0b1"},
                                           VersionCase{"1.0.1", "1.0b5"},
                                           VersionCase{"100000000000000000000", "99999999999"},
                                           VersionCase{"0.2.0", "0.1.9"}));

TEST(VersionEquality, SeparatorsAndTrailingZerosDoNotCount) {
    EXPECT_EQ(compareVersions("1.0", "1.0"), 0);
    EXPECT_EQ(compareVersions("1.0", "1.0.0"), 0);
    EXPECT_EQ(compareVersions("1-2", "1.2"), 0);
    EXPECT_EQ(compareVersions("007", "7"), 0);
}

constexpr const char* feed = R"(<?xml version="1.0" encoding="utf-8"?>
<rss version="2.0" xmlns:upd="urn:example:updates">
  <channel>
    <title>Lumivesper AI</title>
    <item>
      <title>Version 1.2</title>
      <upd:releaseNotesLink> https://example.test/notes/1.2 </upd:releaseNotesLink>
      <enclosure url="https://example.test/1.2.tar.gz" upd:version="120"
                 upd:shortVersionString="1.2" length="10" type="application/octet-stream"/>
    </item>
    <item>
      <title>Version 1.3</title>
      <upd:version>130</upd:version>
      <upd:shortVersionString>1.3</upd:shortVersionString>
    </item>
    <item><title>No version at all</title></item>
    <item><upd:version>90</upd:version></item>
  </channel>
</rss>)";

TEST(AppcastParsing, ReadsVersionsFromElementsOrEnclosure) {
    const auto items = parseAppcast(feed);
    ASSERT_EQ(items.size(), 3u);
    EXPECT_EQ(items[0].version, "120");
    EXPECT_EQ(items[0].displayVersion, "1.2");
    EXPECT_EQ(items[0].downloadURL, "https://example.test/1.2.tar.gz");
    EXPECT_EQ(items[0].releaseNotesURL, "https://example.test/notes/1.2");
    EXPECT_EQ(items[1].version, "130");
    EXPECT_EQ(items[1].displayVersion, "1.3");
    EXPECT_EQ(items[1].downloadURL, std::nullopt);
    EXPECT_EQ(items[2].displayVersion, "90"); // falls back on the version
}

TEST(AppcastParsing, NewestUpdateIsTheHighestNewerVersion) {
    const auto items = parseAppcast(feed);
    EXPECT_EQ(newestUpdate(items, "100")->version, "130");
    EXPECT_EQ(newestUpdate(items, "125")->version, "130");
    EXPECT_EQ(newestUpdate(items, "130"), std::nullopt);
    EXPECT_EQ(newestUpdate({}, "1"), std::nullopt);
}

TEST(AppcastParsing, RejectsWhatIsNotAnRssChannel) {
    for (const char* text :
         {"", "not xml", "<rss><channel>", "<feed><entry/></feed>", "<rss version=\"2.0\"></rss>"})
        EXPECT_THROW(parseAppcast(text), AppcastError) << text;
    EXPECT_TRUE(parseAppcast("<rss><channel/></rss>").empty());
}

} // namespace
} // namespace lumivesper::settings
