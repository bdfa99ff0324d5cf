#include "../support/scripted_dialogs.h"
#include "../support/temporary_folder.h"
#include "document/app_state.h"
#include "document/project_io.h"
#include "settings/defaults.h"

#include <gtest/gtest.h>

namespace lumivesper::document {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> displayNames(const AppState& state) {
    std::vector<std::string> names;
    for (const auto& entry : state.recentProjects())
        names.push_back(entry.displayName);
    return names;
}

class PersistedStateTest : public ::testing::Test {
protected:
    std::string storedList() const {
        const auto data = defaults->data(AppState::recentProjectsKey);
        return data ? std::string(data->begin(), data->end()) : "<absent>";
    }
    // A fresh launch over the same settings file, with what it printed.
    std::pair<std::unique_ptr<AppState>, std::string> relaunch() {
        defaults = std::make_unique<settings::Defaults>(file);
        ::testing::internal::CaptureStdout();
        auto state = std::make_unique<AppState>(*defaults);
        return {std::move(state), ::testing::internal::GetCapturedStdout()};
    }

    testing::TemporaryFolder folder;
    fs::path file = folder.path() / "defaults.json";
    std::unique_ptr<settings::Defaults> defaults = std::make_unique<settings::Defaults>(file);
};

TEST_F(PersistedStateTest, RecentListPutsTheLatestFirstOnceAndNamesItByItsStem) {
    AppState state(*defaults);
    ::testing::internal::CaptureStdout();
    state.addRecentProject(fs::path());
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "⚠️ addRecentProject: empty path\n");

    for (const char* name : {"A.lvesper", ".lvesper", "Winter Lake.lvesper", "A.lvesper"})
        state.addRecentProject(folder.path() / name);

    EXPECT_EQ(displayNames(state), (std::vector<std::string>{"A", "Winter Lake", ".lvesper"}));
}

TEST_F(PersistedStateTest, RecentListKeepsTenIsStoredAsCompactJsonAndClearsToAnEmptyArray) {
    AppState state(*defaults);
    for (int i = 1; i <= 11; ++i)
        state.addRecentProject(folder.path() / ("P" + std::to_string(i) + ".lvesper"));

    ASSERT_EQ(state.recentProjects().size(), 10u);
    EXPECT_EQ(state.recentProjects().front().displayName, "P11");
    EXPECT_EQ(state.recentProjects().back().displayName, "P2");
    EXPECT_EQ(storedList().find('\n'), std::string::npos);
    const auto stored = nlohmann::json::parse(storedList());
    EXPECT_EQ(stored[0].size(), 3u);
    EXPECT_EQ(stored[0]["path"], (folder.path() / "P11.lvesper").string());
    EXPECT_TRUE(stored[0]["lastOpened"].is_number());

    auto [relaunched, output] = relaunch();
    EXPECT_EQ(displayNames(*relaunched), displayNames(state));
    EXPECT_NE(output.find("📂 Loaded 10 recent projects\n"), std::string::npos);

    relaunched->clearRecentProjects();
    EXPECT_EQ(storedList(), "[]");
    EXPECT_NE(relaunch().second.find("📂 Loaded 0 recent projects\n📂 Projects: []\n"),
              std::string::npos);
}

TEST_F(PersistedStateTest, ListStartsEmptyWhenAbsentOrUndecodableAndIsKeptUntilTheNextSave) {
    EXPECT_TRUE(relaunch().second.starts_with("📂 No recent projects found in the settings file\n"));
    const std::string broken = R"([{"path": "/a.lvesper"}])";
    defaults->setData(AppState::recentProjectsKey,
                      std::vector<std::uint8_t>(broken.begin(), broken.end()));
    auto [state, output] = relaunch();
    EXPECT_TRUE(state->recentProjects().empty());
    EXPECT_NE(output.find("Failed to load recent projects: "), std::string::npos);
    EXPECT_EQ(storedList(), broken);
}

TEST_F(PersistedStateTest, APackageHasOneEntryInAnySpellingAndAnOddNameNeverThrows) {
    AppState state(*defaults);
    testing::ScriptedDialogs dialogs;
    ProjectIO io(dialogs);
    const fs::path trip = folder.path() / "Trip.lvesper";
    const fs::path latin1 = folder.path() / "Caf\xE9.lvesper"; // a folder name that is not UTF-8
    const fs::path workingFolder = fs::current_path();
    fs::current_path(folder.path());
    ::testing::internal::CaptureStdout();
    EXPECT_NO_THROW({
        io.save(latin1, state);
        io.load(latin1, state);
        io.save(trip.string() + "/", state);
        io.load("./Trip.lvesper", state);
        io.load(folder.path() / "sub" / ".." / "Trip.lvesper//", state);
    });
    const std::string output = ::testing::internal::GetCapturedStdout();
    fs::current_path(workingFolder);

    EXPECT_TRUE(dialogs.alerts.empty());
    EXPECT_EQ(state.currentProjectPath(), trip);
    EXPECT_EQ(displayNames(state), (std::vector<std::string>{"Trip", "Caf\xE9"}));
    EXPECT_NE(output.find("Caf\xEF\xBF\xBD.lvesper"), std::string::npos) << "logged as valid text";
    EXPECT_EQ(relaunch().first->recentProjects().size(), 2u);
}

TEST_F(PersistedStateTest, ClientIdIsMadeOnceAndKept) {
    const std::string clientId = relaunch().first->clientId();
    EXPECT_TRUE(platform::Uuid::parse(clientId).has_value());
    EXPECT_EQ(relaunch().first->clientId(), clientId);

    defaults->setString(AppState::clientIdKey, ""); // an empty one is replaced
    const std::string replaced = relaunch().first->clientId();
    EXPECT_EQ(defaults->string(AppState::clientIdKey), replaced);
}

TEST_F(PersistedStateTest, LaunchWithAllThreeGenerationKeysKeepsOnlyTheJobId) {
    defaults->setString(AppState::currentGenerationJobIdKey, "job-7");
    defaults->setString(AppState::currentGenerationIdempotencyKeyKey, "idem-7");
    defaults->setString(AppState::currentGenerationLastEventIdKey, "event-41");
    auto [state, output] = relaunch();
    EXPECT_EQ(state->currentGenerationJobId(), "job-7");
    EXPECT_EQ(state->currentGenerationIdempotencyKey(), std::nullopt);
    EXPECT_EQ(state->currentGenerationLastEventId(), std::nullopt);
    EXPECT_EQ(defaults->string(AppState::currentGenerationIdempotencyKeyKey), std::nullopt);
    EXPECT_EQ(defaults->string(AppState::currentGenerationLastEventIdKey), std::nullopt);

    state->setCurrentGenerationLastEventId("event-42"); // each assignment stores all three
    state->setCurrentGenerationJobId(std::nullopt);
    EXPECT_EQ(defaults->string(AppState::currentGenerationJobIdKey), std::nullopt);
    EXPECT_EQ(defaults->string(AppState::currentGenerationLastEventIdKey), "event-42");
}

TEST_F(PersistedStateTest, DocumentWithoutDefaultsWritesNothing) {
    AppState state;
    state.addRecentProject(folder.path() / "A.lvesper");
    state.setCurrentGenerationJobId("job-1");
    EXPECT_FALSE(fs::exists(file));
}

} // namespace
} // namespace lumivesper::document
