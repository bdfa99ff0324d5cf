#include "../support/temporary_folder.h"
#include "document/app_state.h"
#include "settings/defaults.h"

#include <gtest/gtest.h>

namespace lumivesper::document {
namespace {

namespace fs = std::filesystem;

std::string storedText(const settings::Defaults& defaults, const char* key) {
    const auto data = defaults.data(key);
    return data ? std::string(data->begin(), data->end()) : std::string("<absent>");
}

std::vector<std::string> displayNames(const AppState& state) {
    std::vector<std::string> names;
    for (const auto& entry : state.recentProjects())
        names.push_back(entry.displayName);
    return names;
}

class PersistedStateTest : public ::testing::Test {
protected:
    fs::path packageNamed(const std::string& name) { return folder.path() / name; }

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

using RecentProjectsTest = PersistedStateTest;

TEST_F(RecentProjectsTest, ReaddingAProjectMovesItToTheHeadWithANewDate) {
    AppState state(*defaults);
    state.addRecentProject(packageNamed("A.lvesper"));
    state.addRecentProject(packageNamed("B.lvesper"));
    const auto firstOpened = state.recentProjects()[1].lastOpened;

    state.addRecentProject(packageNamed("A.lvesper"));

    EXPECT_EQ(displayNames(state), (std::vector<std::string>{"A", "B"}));
    EXPECT_GE(state.recentProjects()[0].lastOpened, firstOpened);
    EXPECT_EQ(state.recentProjects()[0].path, packageNamed("A.lvesper").string());
}

TEST_F(RecentProjectsTest, TheEleventhProjectPushesOutTheOldest) {
    AppState state(*defaults);
    for (int i = 1; i <= 11; ++i)
        state.addRecentProject(packageNamed("P" + std::to_string(i) + ".lvesper"));

    ASSERT_EQ(state.recentProjects().size(), 10u);
    EXPECT_EQ(state.recentProjects().front().displayName, "P11");
    EXPECT_EQ(state.recentProjects().back().displayName, "P2");

    auto [relaunched, output] = relaunch();
    EXPECT_EQ(displayNames(*relaunched), displayNames(state));
    EXPECT_NE(output.find("📂 Loaded 10 recent projects\n"), std::string::npos);
}

TEST_F(RecentProjectsTest, DisplayNameFallsBackToTheWholeComponent) {
    AppState state(*defaults);
    state.addRecentProject(packageNamed(".lvesper"));
    state.addRecentProject(packageNamed("Winter Lake.lvesper"));
    EXPECT_EQ(displayNames(state), (std::vector<std::string>{"Winter Lake", ".lvesper"}));
}

TEST_F(RecentProjectsTest, EmptyPathIsIgnored) {
    AppState state(*defaults);
    ::testing::internal::CaptureStdout();
    state.addRecentProject(fs::path());
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "⚠️ addRecentProject: empty path\n");
    EXPECT_TRUE(state.recentProjects().empty());
}

TEST_F(RecentProjectsTest, StoredListIsCompactJsonWithTheRecordKeys) {
    AppState state(*defaults);
    state.addRecentProject(packageNamed("A.lvesper"));
    const auto stored = nlohmann::json::parse(storedText(*defaults, AppState::recentProjectsKey));
    ASSERT_EQ(stored.size(), 1u);
    EXPECT_EQ(stored[0]["path"], packageNamed("A.lvesper").string());
    EXPECT_EQ(stored[0]["displayName"], "A");
    EXPECT_TRUE(stored[0]["lastOpened"].is_number());
    EXPECT_EQ(storedText(*defaults, AppState::recentProjectsKey).find('\n'), std::string::npos);
}

TEST_F(RecentProjectsTest, ClearMenuStoresAnEmptyArray) {
    {
        AppState state(*defaults);
        state.addRecentProject(packageNamed("A.lvesper"));
        state.clearRecentProjects();
        EXPECT_TRUE(state.recentProjects().empty());
    }
    EXPECT_EQ(storedText(*defaults, AppState::recentProjectsKey), "[]");
    auto [relaunched, output] = relaunch();
    EXPECT_NE(output.find("📂 Loaded 0 recent projects\n📂 Projects: []\n"), std::string::npos);
}

TEST_F(RecentProjectsTest, FreshAccountHasNoList) {
    auto [state, output] = relaunch();
    EXPECT_TRUE(state->recentProjects().empty());
    EXPECT_TRUE(output.starts_with("📂 No recent projects found in the settings file\n"));
}

TEST_F(RecentProjectsTest, UndecodableListStartsEmptyAndStaysStoredUntilTheNextSave) {
    const std::string broken = R"([{"path": "/a.lvesper"}])";
    defaults->setData(AppState::recentProjectsKey,
                      std::vector<std::uint8_t>(broken.begin(), broken.end()));

    auto [state, output] = relaunch();

    EXPECT_TRUE(state->recentProjects().empty());
    EXPECT_NE(output.find("Failed to load recent projects: "), std::string::npos);
    EXPECT_EQ(storedText(*defaults, AppState::recentProjectsKey), broken);
}

using ClientStateTest = PersistedStateTest;

TEST_F(ClientStateTest, ClientIdIsMadeOnceAndKept) {
    auto [first, ignored] = relaunch();
    const std::string clientId = first->clientId();
    EXPECT_TRUE(platform::Uuid::parse(clientId).has_value());
    EXPECT_EQ(defaults->string(AppState::clientIdKey), clientId);

    auto [second, alsoIgnored] = relaunch();
    EXPECT_EQ(second->clientId(), clientId);
}

TEST_F(ClientStateTest, EmptyStoredClientIdIsReplaced) {
    defaults->setString(AppState::clientIdKey, "");
    auto [state, output] = relaunch();
    EXPECT_FALSE(state->clientId().empty());
    EXPECT_EQ(defaults->string(AppState::clientIdKey), state->clientId());
}

TEST_F(ClientStateTest, LaunchWithAllThreeKeysKeepsOnlyTheJobId) {
    defaults->setString(AppState::currentGenerationJobIdKey, "job-7");
    defaults->setString(AppState::currentGenerationIdempotencyKeyKey, "idem-7");
    defaults->setString(AppState::currentGenerationLastEventIdKey, "event-41");

    auto [state, output] = relaunch();

    EXPECT_EQ(state->currentGenerationJobId(), "job-7");
    EXPECT_EQ(state->currentGenerationIdempotencyKey(), std::nullopt);
    EXPECT_EQ(state->currentGenerationLastEventId(), std::nullopt);
    const settings::Defaults reread(file);
    EXPECT_EQ(reread.string(AppState::currentGenerationJobIdKey), "job-7");
    EXPECT_EQ(reread.string(AppState::currentGenerationIdempotencyKeyKey), std::nullopt);
    EXPECT_EQ(reread.string(AppState::currentGenerationLastEventIdKey), std::nullopt);
}

TEST_F(ClientStateTest, EachAssignmentStoresAllThreeValues) {
    AppState state(*defaults);
    state.setCurrentGenerationJobId("job-1");
    state.setCurrentGenerationIdempotencyKey("idem-1");
    state.setCurrentGenerationLastEventId("event-1");
    EXPECT_EQ(defaults->string(AppState::currentGenerationLastEventIdKey), "event-1");

    state.setCurrentGenerationJobId(std::nullopt);

    const settings::Defaults reread(file);
    EXPECT_EQ(reread.string(AppState::currentGenerationJobIdKey), std::nullopt);
    EXPECT_EQ(reread.string(AppState::currentGenerationIdempotencyKeyKey), "idem-1");
    EXPECT_EQ(reread.string(AppState::currentGenerationLastEventIdKey), "event-1");
}

TEST_F(ClientStateTest, DocumentWithoutDefaultsWritesNothing) {
    AppState state;
    state.addRecentProject(packageNamed("A.lvesper"));
    state.setCurrentGenerationJobId("job-1");
    state.clearRecentProjects();
    EXPECT_FALSE(state.clientId().empty());
    EXPECT_FALSE(fs::exists(file));
}

} // namespace
} // namespace lumivesper::document
