#include "../support/temporary_folder.h"
#include "scoped_environment.h"
#include "settings/app_settings.h"
#include "settings/defaults.h"
#include "settings/server_config.h"
#include "settings/update_channel.h"

#include <gtest/gtest.h>

namespace lumivesper::settings {
namespace {

class ChannelTest : public ::testing::Test {
protected:
    ChannelTest() {
        subscription = channels.observeChannelChanged(
            [this](const UpdateChannelChange& change) { changes.push_back(change); });
    }

    testing::TemporaryFolder folder;
    Defaults defaults{folder.path() / "defaults.json"};
    UpdateChannelManager channels{defaults};
    std::vector<UpdateChannelChange> changes;
    platform::Subscription subscription;
};

TEST_F(ChannelTest, StoredTextsReadAsTheirChannel) {
    const std::vector<std::pair<std::optional<std::string>, UpdateChannel>> cases = {
        {std::nullopt, UpdateChannel::stable}, {"beta", UpdateChannel::beta},
        {"stable", UpdateChannel::stable},     {"Beta", UpdateChannel::stable},
        {"nightly", UpdateChannel::stable},    {"", UpdateChannel::stable},
    };
    for (const auto& [stored, expected] : cases) {
        if (stored)
            defaults.setString(UpdateChannelManager::channelKey, *stored);
        else
            defaults.remove(UpdateChannelManager::channelKey);
        EXPECT_EQ(channels.currentChannel(), expected) << stored.value_or("<absent>");
    }
}

TEST_F(ChannelTest, TwoEqualAssignmentsAnnounceOnce) {
    ::testing::internal::CaptureStdout();
    channels.setCurrentChannel(UpdateChannel::beta);
    channels.setCurrentChannel(UpdateChannel::beta);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "📡 Update channel changed: stable → beta\n");
    ASSERT_EQ(changes.size(), 1u);
    EXPECT_EQ(changes[0].oldChannel, UpdateChannel::stable);
    EXPECT_EQ(changes[0].newChannel, UpdateChannel::beta);
    EXPECT_EQ(defaults.string(UpdateChannelManager::channelKey), "beta");
}

TEST_F(ChannelTest, StableOnAFreshAccountOrOverAnUnknownTextWritesNothing) {
    channels.setCurrentChannel(UpdateChannel::stable);
    EXPECT_EQ(defaults.string(UpdateChannelManager::channelKey), std::nullopt);
    defaults.setString(UpdateChannelManager::channelKey, "nightly");
    channels.setCurrentChannel(UpdateChannel::stable);
    EXPECT_EQ(defaults.string(UpdateChannelManager::channelKey), "nightly");
    EXPECT_TRUE(changes.empty());
}

TEST_F(ChannelTest, FeedURLJoinsAsTextAndFollowsTheChannel) {
    EXPECT_EQ(channels.feedURLString("https://host.test"),
              "https://host.test/api/updates/appcast.xml");
    EXPECT_EQ(channels.feedURLString("https://host.test/"),
              "https://host.test//api/updates/appcast.xml");
    channels.setCurrentChannel(UpdateChannel::beta);
    EXPECT_EQ(channels.feedURLString("https://host.test"),
              "https://host.test/api/updates/appcast-beta.xml");
}

class AppSettingsTest : public ChannelTest {
protected:
    testing::ScopedEnvironment serverVariable{"API_SERVER_URL", std::nullopt};
};

TEST_F(AppSettingsTest, FirstUseStoresBothServerKeysButNoChannel) {
    AppSettings settings(defaults, channels);
    EXPECT_EQ(settings.updateChannel(), UpdateChannel::stable);
    EXPECT_EQ(defaults.boolean(AppSettings::useCustomServerKey), false);
    EXPECT_EQ(defaults.string(AppSettings::serverURLOverrideKey), "");
    EXPECT_EQ(defaults.string(AppSettings::updateChannelKey), std::nullopt);
    EXPECT_TRUE(changes.empty());
}

TEST_F(AppSettingsTest, LoadReadsWhatWasStored) {
    defaults.setString(AppSettings::updateChannelKey, "beta");
    defaults.setBoolean(AppSettings::useCustomServerKey, true);
    defaults.setString(AppSettings::serverURLOverrideKey, "not a url");
    AppSettings settings(defaults, channels);
    EXPECT_EQ(settings.updateChannel(), UpdateChannel::beta);
    EXPECT_TRUE(settings.useCustomServer());
    EXPECT_EQ(settings.customServerURL(), "not a url");
    EXPECT_TRUE(changes.empty()); // the channel was already beta
}

TEST_F(AppSettingsTest, CapitalisedChannelLoadsAsStable) {
    defaults.setString(AppSettings::updateChannelKey, "Beta");
    AppSettings settings(defaults, channels);
    EXPECT_EQ(settings.updateChannel(), UpdateChannel::stable);
}

TEST_F(AppSettingsTest, EffectiveServerNeedsTheSwitchAndAText) {
    AppSettings settings(defaults, channels);
    settings.setCustomServerURL("https://mine.test");
    EXPECT_EQ(settings.effectiveServerURL(), builtInServerURL);
    settings.setUseCustomServer(true);
    EXPECT_EQ(settings.effectiveServerURL(), "https://mine.test");
    EXPECT_EQ(defaultServerURL(), builtInServerURL); // clients never see the custom server
    settings.setCustomServerURL("");
    EXPECT_EQ(settings.effectiveServerURL(), builtInServerURL);

    testing::ScopedEnvironment variable("API_SERVER_URL", "http://127.0.0.1:1");
    EXPECT_EQ(settings.effectiveServerURL(), "http://127.0.0.1:1");
}

TEST_F(AppSettingsTest, ResetAnnouncesTheChannelChangeAndClearsTheServer) {
    AppSettings settings(defaults, channels);
    settings.setUpdateChannel(UpdateChannel::beta);
    settings.setUseCustomServer(true);
    settings.setCustomServerURL("https://mine.test");
    int notifications = 0;
    auto observed = settings.observe([&] { ++notifications; });

    settings.resetToDefaults();

    ASSERT_EQ(changes.size(), 2u);
    EXPECT_EQ(changes[1].oldChannel, UpdateChannel::beta);
    EXPECT_EQ(changes[1].newChannel, UpdateChannel::stable);
    EXPECT_FALSE(settings.useCustomServer());
    EXPECT_EQ(defaults.string(AppSettings::serverURLOverrideKey), "");
    EXPECT_EQ(defaults.string(AppSettings::updateChannelKey), "stable");
    EXPECT_EQ(notifications, 3);
}

} // namespace
} // namespace lumivesper::settings
