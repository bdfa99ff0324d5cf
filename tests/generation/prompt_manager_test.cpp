#include "../support/temporary_folder.h"
#include "generation/base64.h"
#include "generation/bundled_resources.h"
#include "generation/prompt_manager.h"
#include "provider_fixture.h"
#include "test_clock.h"

#include <gtest/gtest.h>

namespace lumivesper::generation {
namespace {

using testing::RecordingServer;
using testing::replyJson;
using testing::SeenRequest;
using testing::TestClock;

const std::string serverPrompts =
    R"({"version":"7","updated":"2026-01-01","templates":{"original":"S {userPrompt}","relight":"S {phaseDescription}"}})";
const std::string defaultsPrompts =
    R"({"version":"5","updated":"2025-01-01","templates":{"original":"D {userPrompt}","relight":"D {phaseDescription}"}})";
const std::string bundledPrompts =
    R"({"version":"b1","updated":"2024-01-01","templates":{"original":"B {userPrompt}","relight":"B {phaseDescription}"}})";

class PromptManagerTest : public ::testing::Test {
protected:
    PromptManager manager(std::optional<std::string> bundled = bundledPrompts) {
        return PromptManager(
            server.url(), defaults, {}, [bundled] { return bundled; }, clock.function());
    }
    void storeDefaultsCopy() {
        defaults.setData(PromptManager::cacheKey, toBytes(defaultsPrompts));
    }
    std::size_t requests() const { return server.seen().size(); }

    lumivesper::testing::TemporaryFolder folder;
    settings::Defaults defaults{folder.path() / "defaults.json"};
    TestClock clock;
    RecordingServer server;
};

TEST_F(PromptManagerTest, DefaultsCopyCountsAsFreshAtStart) {
    storeDefaultsCopy();
    server.respond([](const SeenRequest&, httplib::Response& r) { replyJson(r, "down", 503); });
    auto prompts = manager();
    EXPECT_EQ(prompts.prompts().version, "5");
    clock.advance(std::chrono::seconds(3599));
    EXPECT_EQ(prompts.prompts().version, "5");
    EXPECT_EQ(requests(), 0u);
}

TEST_F(PromptManagerTest, ServerCopyIsCachedAndStoredAsReceived) {
    server.respond([](const SeenRequest&, httplib::Response& r) { replyJson(r, serverPrompts); });
    auto prompts = manager();
    const auto fetched = prompts.prompts();
    EXPECT_EQ(fetched.version, "7");
    EXPECT_EQ(fetched.updated, "2026-01-01");
    EXPECT_EQ(fetched.templates.original, "S {userPrompt}");
    EXPECT_EQ(server.seen().at(0).method, "GET");
    EXPECT_EQ(server.seen().at(0).path, "/api/prompts");
    EXPECT_EQ(defaults.data(PromptManager::cacheKey), toBytes(serverPrompts));

    EXPECT_EQ(prompts.prompts(), fetched);
    EXPECT_EQ(requests(), 1u);
    clock.advance(std::chrono::seconds(3600));
    prompts.prompts();
    EXPECT_EQ(requests(), 2u);
}

TEST_F(PromptManagerTest, AnswerWithoutTemplatesFallsToBundledCopy) {
    server.respond(
        [](const SeenRequest&, httplib::Response& r) { replyJson(r, R"({"version":"2"})"); });
    auto prompts = manager();
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(prompts.prompts().version, "b1");
    const auto console = ::testing::internal::GetCapturedStdout();
    EXPECT_NE(console.find("⚠️  Failed to fetch prompts from server: "), std::string::npos);
    EXPECT_NE(console.find("✅ Using bundled prompts (vb1)"), std::string::npos);
    EXPECT_FALSE(defaults.data(PromptManager::cacheKey));

    prompts.prompts(); // a failure caches nothing: the server is asked again
    EXPECT_EQ(requests(), 2u);
}

TEST_F(PromptManagerTest, StaleCopyLosesToBundledOneWhenServerFails) {
    storeDefaultsCopy();
    server.respond([](const SeenRequest&, httplib::Response& r) { replyJson(r, "oops", 500); });
    auto prompts = manager();
    clock.advance(std::chrono::seconds(3601));
    EXPECT_EQ(prompts.prompts().version, "b1");
    EXPECT_EQ(requests(), 1u);
}

TEST_F(PromptManagerTest, NoBundledCopyIsTheOnlyFailure) {
    server.respond([](const SeenRequest&, httplib::Response& r) { replyJson(r, "oops", 500); });
    for (const auto& bundled : {std::optional<std::string>(), std::optional<std::string>("{}")}) {
        auto prompts = manager(bundled);
        try {
            prompts.prompts();
            FAIL();
        } catch (const PromptError& error) {
            EXPECT_EQ(error.kind(), PromptError::Case::noBundledPrompts);
            EXPECT_EQ(error.description(), "No bundled prompts available");
        }
    }
}

TEST_F(PromptManagerTest, UnreadableDefaultsCopyIsIgnored) {
    defaults.setData(PromptManager::cacheKey, toBytes("{not json"));
    server.respond([](const SeenRequest&, httplib::Response& r) { replyJson(r, serverPrompts); });
    EXPECT_EQ(manager().prompts().version, "7");
}

TEST(BundledPromptsTest, ShippedFileDecodesWithBothPlaceholders) {
    const auto text = bundledDefaultPrompts();
    ASSERT_TRUE(text);
    const auto templates = decodePromptTemplates(*text);
    EXPECT_NE(templates.templates.original.find("{userPrompt}"), std::string::npos);
    EXPECT_NE(templates.templates.relight.find("{phaseDescription}"), std::string::npos);
    EXPECT_EQ(decodePromptTemplates(std::string(embeddedDefaultPrompts())), templates);
}

struct RenderCase {
    std::string templateText;
    std::map<std::string, std::string> variables;
    std::string expected;
};

class RenderTest : public ::testing::TestWithParam<RenderCase> {};

TEST_P(RenderTest, SubstitutesLiterally) {
    EXPECT_EQ(render(GetParam().templateText, GetParam().variables), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, RenderTest,
    ::testing::Values(
        RenderCase{
            "Scene: {userPrompt}. {userPrompt}", {{"userPrompt", "lake"}}, "Scene: lake. lake"},
        RenderCase{"{a}", {}, "{a}"},
        RenderCase{"Light: {phaseDescription}",
                   {{"phaseDescription", "dusk {userPrompt}"}},
                   "Light: dusk {userPrompt}"},
        RenderCase{"{UserPrompt} {userPrompt}", {{"userPrompt", "x"}}, "{UserPrompt} x"},
        RenderCase{"{x}{x}", {{"x", "{x}"}}, "{x}{x}"},
        RenderCase{"none here", {{"userPrompt", "x"}}, "none here"}));

} // namespace
} // namespace lumivesper::generation
