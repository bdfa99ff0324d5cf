#include "../support/temporary_folder.h"
#include "settings/app_settings.h"
#include "settings/defaults.h"
#include "settings/server_config.h"

#include <atomic>
#include <fstream>
#include <latch>
#include <set>
#include <thread>
#include <gtest/gtest.h>

namespace lumivesper::settings {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<std::uint8_t>;

// Tests that read the environment set what they need: nothing here restores it.
void setVariable(const char* name, const std::optional<std::string>& value) {
    value ? ::setenv(name, value->c_str(), 1) : ::unsetenv(name);
}

TEST(Environment, ChoosesTheAddressesAndOnlyTheServerIsAnnounced) {
    const std::string release = std::string("🔧 Using RELEASE serverURL: ") + builtInServerURL;
    const std::string fromEnvironment = "🔧 Using API_SERVER_URL from environment: ";
    const std::tuple<std::optional<std::string>, std::string, std::string, std::string> cases[] = {
        {std::nullopt, builtInServerURL, builtInFeedBaseURL, release},
        {"", builtInServerURL, builtInFeedBaseURL, release},
        {"http://h:9/", "http://h:9/", "http://h:9/", fromEnvironment + "http://h:9/"},
        {" ", " ", " ", fromEnvironment + " "}, // a blank counts as set
    };
    for (const auto& [value, server, feed, line] : cases) {
        setVariable("API_SERVER_URL", value);
        setVariable("SPARKLE_FEED_BASE_URL", value);
        ::testing::internal::CaptureStdout();
        EXPECT_EQ(defaultServerURL(), server);
        EXPECT_EQ(feedBaseURL(), feed);
        EXPECT_EQ(::testing::internal::GetCapturedStdout(), line + "\n");
    }
}

TEST(Environment, ConfigDirVariableHoldsTheSettingsFile) {
    setVariable("LUMIVESPER_CONFIG_DIR", "/tmp/somewhere");
    EXPECT_EQ(Defaults::standardLocation(), fs::path("/tmp/somewhere/defaults.json"));
}

class SettingsTest : public ::testing::Test {
protected:
    SettingsTest() {
        setVariable("API_SERVER_URL", std::nullopt);
        subscription = channels.observeChannelChanged([this](const UpdateChannelChange& change) {
            changes.push_back(std::string(rawValue(change.oldChannel)) + " → " +
                              std::string(rawValue(change.newChannel)));
        });
    }
    // The folder's files but the lock beside the settings file.
    std::vector<fs::path> files() const {
        std::vector<fs::path> found{fs::directory_iterator(file.parent_path()),
                                    fs::directory_iterator()};
        std::erase(found, fs::path(file.string() + ".lock"));
        return found;
    }
    void writeFile(const std::string& text) const {
        fs::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << text;
    }

    testing::TemporaryFolder folder;
    fs::path file = folder.path() / "nested" / "defaults.json";
    Defaults defaults{file};
    UpdateChannelManager channels{defaults};
    std::vector<std::string> changes;
    platform::Subscription subscription;
};

TEST_F(SettingsTest, DefaultsSurviveAReopenAndLeaveOnlyTheFile) {
    // Every padding, and the two characters where base64 alphabets differ ("+/+/").
    const std::vector<Bytes> blobs = {{}, {0x00}, {0xff, 0x00}, {0xfb, 0xff, 0xbf}};
    defaults.setString("name", "Dämmerung \"quoted\"");
    defaults.setBoolean("flag", true);
    defaults.setInteger("count", -9007199254740993);
    for (std::size_t i = 0; i < blobs.size(); ++i)
        defaults.setData("blob" + std::to_string(i), blobs[i]);
    defaults.setString("gone", "soon");
    defaults.remove("gone");

    EXPECT_EQ(files(), std::vector<fs::path>{file});
    Defaults reopened(file);
    EXPECT_EQ(reopened.string("name"), "Dämmerung \"quoted\"");
    EXPECT_EQ(reopened.boolean("flag"), true);
    EXPECT_EQ(reopened.integer("count"), -9007199254740993);
    for (std::size_t i = 0; i < blobs.size(); ++i)
        EXPECT_EQ(reopened.data("blob" + std::to_string(i)), blobs[i]) << i;
    EXPECT_EQ(reopened.string("gone"), std::nullopt);
}

TEST_F(SettingsTest, DefaultsReadDataAsStandardBase64AndAnythingElseAsAbsent) {
    writeFile(R"({"abc": {"data": "QUJD"}, "bad": {"data": "not base64!"}, "short": {"data": "QQ="},
                 "text": "x"})");
    Defaults stored(file);
    EXPECT_EQ(stored.data("abc"), (Bytes{'A', 'B', 'C'}));
    EXPECT_EQ(stored.data("bad"), std::nullopt);
    EXPECT_EQ(stored.data("short"), std::nullopt);
    EXPECT_EQ(stored.integer("text"), std::nullopt);
}

TEST_F(SettingsTest, UnreadableDefaultsAreRenamedAsideWithAWarningNeverOverwritten) {
    // Corrupt before the store opens, and corrupt under a store that is already open.
    for (const bool whileOpen : {false, true}) {
        for (const std::string corrupt : {"{\"name\": \"trunc", "[1, 2, 3]"}) {
            SCOPED_TRACE(corrupt);
            fs::remove_all(file.parent_path());
            auto store = std::make_unique<Defaults>(file);
            store->setString("before", "kept in memory only");
            writeFile(corrupt);
            ::testing::internal::CaptureStdout();
            if (!whileOpen)
                store = std::make_unique<Defaults>(file);
            store->setString("name", "fresh");
            EXPECT_TRUE(::testing::internal::GetCapturedStdout().starts_with("⚠️ Warning"));

            const Defaults reopened(file);
            EXPECT_EQ(reopened.string("name"), "fresh");
            EXPECT_EQ(reopened.string("before"), std::nullopt);
            std::vector<fs::path> aside = files();
            std::erase(aside, file);
            ASSERT_EQ(aside.size(), 1u);
            EXPECT_TRUE(aside[0].filename().string().starts_with("defaults.json.corrupt-"));
            std::ifstream copy(aside[0], std::ios::binary);
            EXPECT_EQ(std::string(std::istreambuf_iterator<char>(copy), {}), corrupt);
        }
    }
}

TEST_F(SettingsTest, TwoProgramsOnOneFileKeepEachOthersKeys) {
    // The application and the command line, both started before either writes.
    Defaults application(file);
    Defaults commandLine(file);
    application.setString("fromApplication", "a");
    commandLine.setBoolean("fromCommandLine", true);
    application.remove("never set");
    commandLine.setData("blob", {1, 2});

    const Defaults reopened(file);
    EXPECT_EQ(reopened.string("fromApplication"), "a");
    EXPECT_EQ(reopened.boolean("fromCommandLine"), true);
    EXPECT_EQ(reopened.data("blob"), (Bytes{1, 2}));
    EXPECT_EQ(application.boolean("fromCommandLine"), true) << "a write brings in the others' keys";
}

TEST_F(SettingsTest, FirstRunsAtOnceAgreeOnOneCreatedValue) {
    constexpr int runs = 8;
    std::latch start(runs);
    std::vector<std::string> ids(runs);
    std::atomic<int> made = 0;
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < runs; ++i)
            threads.emplace_back([&, i] {
                Defaults own(file); // each its own store, as separate processes would have
                start.arrive_and_wait();
                ids[static_cast<std::size_t>(i)] = own.stringOrInsert("deviceId", [&] {
                    return "device-" + std::to_string(++made);
                });
            });
    }
    EXPECT_EQ(made, 1);
    EXPECT_EQ(std::set<std::string>(ids.begin(), ids.end()).size(), 1u);
    EXPECT_EQ(Defaults(file).string("deviceId"), ids[0]);

    // A stored empty value counts as none; a stored one is kept.
    defaults.setString("clientId", "");
    EXPECT_EQ(defaults.stringOrInsert("clientId", [] { return "made"; }), "made");
    EXPECT_EQ(Defaults(file).stringOrInsert("clientId", [] { return "again"; }), "made");
}

TEST_F(SettingsTest, StoredChannelTextsReadExactlyAndAnnounceNothing) {
    const std::pair<std::optional<std::string>, UpdateChannel> cases[] = {
        {std::nullopt, UpdateChannel::stable}, {"beta", UpdateChannel::beta},
        {"stable", UpdateChannel::stable},     {"Beta", UpdateChannel::stable},
        {"nightly", UpdateChannel::stable},    {"", UpdateChannel::stable}};
    for (const auto& [stored, expected] : cases) { // the first on a fresh account
        if (stored)
            defaults.setString(UpdateChannelManager::channelKey, *stored);
        EXPECT_EQ(channels.currentChannel(), expected) << stored.value_or("<absent>");
        EXPECT_EQ(AppSettings(defaults, channels).updateChannel(), expected) << stored.value_or("");
    }
    EXPECT_TRUE(changes.empty());
}

TEST_F(SettingsTest, OnlyARealChannelChangeIsStoredAndAnnouncedAndItMovesTheFeed) {
    const std::string host = "https://h.test";
    channels.setCurrentChannel(UpdateChannel::stable);
    EXPECT_EQ(defaults.string(UpdateChannelManager::channelKey), std::nullopt);
    EXPECT_EQ(channels.feedURLString(host), host + "/api/updates/appcast.xml");
    EXPECT_EQ(channels.feedURLString(host + "/"), host + "//api/updates/appcast.xml");

    ::testing::internal::CaptureStdout();
    channels.setCurrentChannel(UpdateChannel::beta);
    channels.setCurrentChannel(UpdateChannel::beta);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "📡 Update channel changed: stable → beta\n");
    EXPECT_EQ(changes, std::vector<std::string>{"stable → beta"});
    EXPECT_EQ(defaults.string(UpdateChannelManager::channelKey), "beta");
    EXPECT_EQ(channels.feedURLString(host), host + "/api/updates/appcast-beta.xml");
}

TEST_F(SettingsTest, EffectiveServerNeedsTheSwitchAndAText) {
    AppSettings settings(defaults, channels);
    EXPECT_EQ(defaults.string(AppSettings::serverURLOverrideKey), ""); // stored from the start
    settings.setCustomServerURL("https://mine.test");
    EXPECT_EQ(settings.effectiveServerURL(), builtInServerURL);
    settings.setUseCustomServer(true);
    EXPECT_EQ(settings.effectiveServerURL(), "https://mine.test");
    settings.setCustomServerURL("");
    EXPECT_EQ(settings.effectiveServerURL(), builtInServerURL);

    setVariable("API_SERVER_URL", "http://127.0.0.1:1");
    EXPECT_EQ(settings.effectiveServerURL(), "http://127.0.0.1:1");
}

TEST_F(SettingsTest, LoadReadsTheStoredValuesAndResetClearsThem) {
    defaults.setString(AppSettings::updateChannelKey, "beta");
    defaults.setBoolean(AppSettings::useCustomServerKey, true);
    defaults.setString(AppSettings::serverURLOverrideKey, "not a url");
    AppSettings settings(defaults, channels);
    EXPECT_TRUE(settings.useCustomServer());
    EXPECT_EQ(settings.customServerURL(), "not a url");
    int notifications = 0;
    auto observed = settings.observe([&] { ++notifications; });
    settings.resetToDefaults();
    EXPECT_EQ(changes, std::vector<std::string>{"beta → stable"});
    EXPECT_FALSE(settings.useCustomServer());
    EXPECT_EQ(defaults.boolean(AppSettings::useCustomServerKey), false);
    EXPECT_EQ(defaults.string(AppSettings::serverURLOverrideKey), "");
    EXPECT_EQ(defaults.string(AppSettings::updateChannelKey), "stable");
    EXPECT_EQ(notifications, 3);
}

} // namespace
} // namespace lumivesper::settings
