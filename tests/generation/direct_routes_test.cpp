#include "../support/temporary_folder.h"
#include "generation/magic_generate_workflow.h"
#include "generation/multi_provider_image_service.h"
#include "generation/request_text.h"
#include "loopback_server.h"
#include "platform/image_io.h"
#include "settings/defaults.h"

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>

namespace lumivesper::generation {
namespace {

namespace fs = std::filesystem;
using document::WallpaperImage;
using Json = nlohmann::json;
using testing::SeenRequest;

std::string fileText(const fs::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

// A provider as the direct route meets it: the model that picks it, where its stand-in lives,
// the key it needs, how it answers with an image, and what it was sent.
struct ProviderCase {
    const char* name;
    const char* model;
    const char* prefix; // of the stand-in's paths
    const char* keyVariable;
    std::string (*answer)(const Bytes& picture);
    // The instruction text and the reference image of one request; none for no reference.
    std::pair<std::string, std::optional<Bytes>> (*sent)(const SeenRequest& seen);
};

std::optional<Bytes> fromBase64(const std::string& text) {
    return decodeBase64IgnoringUnknown(text);
}

const ProviderCase providers[] = {
    {"OpenAI", "openai/gpt-image-1", "/openai", "OPENAI_API_KEY",
     [](const Bytes& picture) {
         return Json{{"data", {{{"b64_json", encodeBase64(picture)}}}}}.dump();
     },
     [](const SeenRequest& seen) -> std::pair<std::string, std::optional<Bytes>> {
         if (seen.path.ends_with("/v1/images/edits"))
             return {seen.parts.at("prompt"), toBytes(seen.parts.at("image"))};
         return {Json::parse(seen.body).at("prompt"), std::nullopt};
     }},
    {"Gemini", "google/gemini-2.5-flash-image", "/gemini", "GEMINI_API_KEY",
     [](const Bytes& picture) {
         return Json{
             {"candidates",
              {{{"content",
                 {{"parts",
                   {{{"text", "Here it is"}},
                    {{"inline_data",
                      {{"mime_type", "image/png"}, {"data", encodeBase64(picture)}}}}}}}}}}}}
             .dump();
     },
     [](const SeenRequest& seen) -> std::pair<std::string, std::optional<Bytes>> {
         const Json parts = Json::parse(seen.body).at("contents").at(0).at("parts");
         if (parts.size() < 2)
             return {parts.at(0).at("text"), std::nullopt};
         return {parts.at(0).at("text"), fromBase64(parts.at(1).at("inline_data").at("data"))};
     }},
    {"OpenRouter", "openrouter/black-forest-labs/flux", "/openrouter", "OPENROUTER_API_KEY",
     [](const Bytes& picture) {
         // Both endpoints' answers in one: each client reads only its own.
         return Json{
             {"data", {{{"b64_json", encodeBase64(picture)}}}},
             {"choices",
              {{{"message", {{"images", {{{"image_url", {{"url", pngDataURL(picture)}}}}}}}}}}}}
             .dump();
     },
     [](const SeenRequest& seen) -> std::pair<std::string, std::optional<Bytes>> {
         const Json body = Json::parse(seen.body);
         if (body.contains("prompt"))
             return {body.at("prompt"), std::nullopt};
         const Json content = body.at("messages").back().at("content");
         const std::string url = content.at(0).at("image_url").at("url");
         const auto parsed = parseDataURL(url);
         return {content.at(1).at("text"),
                 parsed ? std::optional<Bytes>(parsed->bytes) : std::nullopt};
     }},
};

// The phase a request asks for, by the label in its instruction; 0 for the base frame.
std::size_t phaseAsked(const std::string& instruction) {
    for (std::size_t i = 1; i < timeOfDayPhases.size(); ++i)
        if (instruction.find(" for " + std::string(timeOfDayPhases[i].label) + ".") !=
            std::string::npos)
            return i;
    return 0;
}

class DirectRouteTest : public ::testing::TestWithParam<ProviderCase> {
protected:
    DirectRouteTest() {
        // Eleven different real pictures, one for each phase.
        for (std::size_t i = 0; i < timeOfDayPhases.size(); ++i) {
            platform::PixelImage image(12, 8);
            for (std::size_t p = 0; p < image.rgba.size(); ++p)
                image.rgba[p] = p % 4 == 3 ? 255 : static_cast<std::uint8_t>(10 + 22 * i);
            const fs::path path = folder.path() / ("phase" + std::to_string(i) + ".png");
            platform::writePng(image, path);
            pictures.push_back(toBytes(fileText(path)));
        }
        server.respond([this](const SeenRequest& seen, httplib::Response& r) {
            const ProviderCase& provider = GetParam();
            if (!seen.path.starts_with(provider.prefix))
                return testing::replyJson(r, "wrong provider", 500);
            const auto [instruction, reference] = provider.sent(seen);
            testing::replyJson(r, provider.answer(pictures[phaseAsked(instruction)]));
        });
        appState.setUndoManager(&undoManager);
    }

    lumivesper::testing::TemporaryFolder folder;
    std::vector<Bytes> pictures;
    settings::Defaults defaults{folder.path() / "defaults.json"};
    document::UndoManager undoManager;
    document::AppState appState;
    platform::QueuedMainThread mainThread;
    testing::RecordingServer server;
};

// A whole day through one provider: the base frame, ten relights of it, eleven key images at
// their phases, tweens around the day, and one undo step for all of it.
TEST_P(DirectRouteTest, FullDayRunsEndToEnd) {
    const ProviderCase& provider = GetParam();
    testing::ScopedEnvironment openAI("OPENAI_API_KEY", std::nullopt);
    testing::ScopedEnvironment gemini("GEMINI_API_KEY", std::nullopt);
    testing::ScopedEnvironment openRouter("OPENROUTER_API_KEY", std::nullopt);
    testing::ScopedEnvironment key(provider.keyVariable, "k-123");
    const auto env = [](const char* name) {
        return std::make_shared<EnvironmentAPIKeyProvider>(name);
    };
    const MultiProviderImageService service(
        OpenAIImageEditService(env("OPENAI_API_KEY"), {}, server.url() + "/openai"),
        GeminiImageEditService(env("GEMINI_API_KEY"), {}, server.url() + "/gemini"),
        OpenRouterImageService(env("OPENROUTER_API_KEY"), {}, server.url() + "/openrouter"));
    int closed = 0;
    MagicGenerateWorkflow workflow(appState, service, mainThread, defaults, [&] { ++closed; });
    workflow.temporaryRoot = folder.path() / "tmp";
    workflow.directRouteFolder = folder.path() / "direct";
    workflow.setModel(provider.model);
    workflow.setPrompt("a quiet harbour");
    workflow.setTweenCount(3);
    ASSERT_TRUE(workflow.canGenerate());
    workflow.startGeneration();
    ASSERT_TRUE(
        mainThread.runUntil([&] { return workflow.state().outcome != GenerationOutcome::none; }));
    ASSERT_EQ(workflow.state().outcome, GenerationOutcome::succeeded)
        << workflow.state().errorMessage.value_or("");
    mainThread.drain();

    // What the provider was asked: one base frame from the prompt, then every other phase once,
    // each with the base frame as its reference.
    const auto seen = server.seen();
    ASSERT_EQ(seen.size(), 11u);
    std::vector<std::size_t> asked;
    for (const auto& request : seen) {
        const auto [instruction, reference] = provider.sent(request);
        const std::size_t phase = phaseAsked(instruction);
        asked.push_back(phase);
        if (phase == 0) {
            EXPECT_NE(instruction.find("a quiet harbour"), std::string::npos);
            EXPECT_FALSE(reference);
            continue;
        }
        ASSERT_TRUE(reference) << timeOfDayPhases[phase].label;
        EXPECT_EQ(*reference, pictures[0]) << timeOfDayPhases[phase].label;
        const std::string everything =
            request.body + (request.parts.contains("prompt") ? request.parts.at("prompt") : "");
        EXPECT_NE(everything.find("You are doing image-to-image relighting."), std::string::npos)
            << "the consistency instruction goes along";
    }
    EXPECT_EQ(asked[0], 0u) << "the base frame comes first";
    std::sort(asked.begin(), asked.end());
    for (std::size_t i = 0; i < asked.size(); ++i)
        EXPECT_EQ(asked[i], i);

    // Each phase's picture sits at that phase, in its own file.
    ASSERT_EQ(appState.images().size(), 44u);
    std::size_t keys = 0;
    for (const auto& image : appState.images()) {
        if (image.isTween)
            continue;
        ++keys;
        const auto phase = std::find_if(
            timeOfDayPhases.begin(), timeOfDayPhases.end(), [&](const TimeOfDayPhase& candidate) {
                return image.fileName == "generated_" + std::string(candidate.id) + ".png";
            });
        ASSERT_NE(phase, timeOfDayPhases.end()) << image.fileName;
        EXPECT_EQ(image.altitude, phase->altitude) << image.fileName;
        EXPECT_EQ(image.azimuth, phase->azimuth) << image.fileName;
        ASSERT_TRUE(image.sourcePath);
        EXPECT_EQ(image.sourcePath->parent_path(), folder.path() / "direct");
        EXPECT_EQ(toBytes(fileText(*image.sourcePath)),
                  pictures[static_cast<std::size_t>(phase - timeOfDayPhases.begin())]);
        EXPECT_TRUE(image.thumbnail);
    }
    EXPECT_EQ(keys, 11u);
    EXPECT_EQ(workflow.state().progressMessage, "Generation complete!");
    EXPECT_EQ(closed, 1);
    EXPECT_FALSE(appState.hasOpenUndoBatch());

    undoManager.undo();
    EXPECT_TRUE(appState.images().empty()) << "one step takes the whole day back";
}

INSTANTIATE_TEST_SUITE_P(Providers, DirectRouteTest, ::testing::ValuesIn(providers),
                         [](const auto& provider) { return std::string(provider.param.name); });

} // namespace
} // namespace lumivesper::generation
