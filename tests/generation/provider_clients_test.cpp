#include "generation/gemini_image_edit_service.h"
#include "generation/image_generation_error.h"
#include "generation/multi_provider_image_service.h"
#include "generation/network_log.h"
#include "generation/openai_image_edit_service.h"
#include "generation/openrouter_image_service.h"
#include "generation/request_text.h"
#include "loopback_server.h"

#include <nlohmann/json.hpp>

namespace lumivesper::generation {
namespace {

using testing::replyJson;
using testing::ScopedEnvironment;
using testing::SeenRequest;
using Json = nlohmann::json;
using Case = ImageGenerationError::Case;

const Bytes referencePng = toBytes(std::string("\x89PNG\r\n\x1a\n\0\x01", 10));
constexpr const char* openAIAnswer = R"({"data":[{"b64_json":"QUJD"}]})";
constexpr const char* geminiAnswer =
    R"({"candidates":[{"content":{"parts":[{"inline_data":{"data":"QUJD"}}]}}]})";

// The case and text of the ImageGenerationError that `call` throws.
std::pair<Case, std::string> failureOf(const std::function<void()>& call) {
    const auto error = testing::thrown<ImageGenerationError>(call).value();
    return {error.kind(), error.description()};
}

struct FixedKey final : APIKeyProvider {
    explicit FixedKey(std::optional<std::string> value) : key(std::move(value)) {}
    std::optional<std::string> apiKey() const override { return key; }
    std::optional<std::string> key;
};

class ProviderClientTest : public ::testing::Test {
protected:
    template <typename Service> Service client(std::optional<std::string> key = "sk-test") const {
        return Service(std::make_shared<FixedKey>(std::move(key)), NetworkSession{}, server.url());
    }

    testing::RecordingServer server;
};

TEST_F(ProviderClientTest, OpenAIGenerationSendsJsonWithShortModelAndNormalisedSizeOrFails) {
    server.answerWith(R"({"data":[{"b64_json":"QU\nJD","content_type":"image/webp"}]})");
    const auto image = client<OpenAIImageEditService>().generateImage(
        "a lake", "openai/gpt-image-1", "16:9", std::nullopt, std::string("Be calm."),
        std::string("1024x576"));
    EXPECT_EQ(toText(image.data) + " " + image.contentType.value_or(""), "ABC image/webp");
    const auto seen = server.seen().at(0);
    EXPECT_EQ(seen.path + " " + seen.authorization + " " + seen.contentType,
              "/v1/images/generations Bearer sk-test application/json");
    EXPECT_EQ(Json::parse(seen.body), Json::parse(R"({"model":"gpt-image-1",
        "prompt":"Be calm.\na lake","n":1,"size":"1536x1024"})"));

    const auto failure = [this](std::optional<std::string> key) {
        return failureOf([&] {
            client<OpenAIImageEditService>(key).generateImage("p", "m", "", std::nullopt,
                                                              std::nullopt, std::nullopt);
        });
    };
    server.answerWith("boom", 500);
    EXPECT_EQ(failure("sk-test"),
              std::pair(Case::requestFailed, std::string("OpenAI error 500: boom")));
    server.answerWith("\xff\xfe", 400);
    EXPECT_EQ(failure("sk-test").second, "OpenAI error 400: Unknown error");
    EXPECT_EQ(failure(""), std::pair(Case::missingAPIKey, std::string("Missing API key")));
    EXPECT_EQ(server.seen().size(), 3u); // nothing sent without a key
}

TEST_F(ProviderClientTest, OpenAIEditIsMultipartEndingWithReferencePng) {
    server.answerWith(openAIAnswer);
    client<OpenAIImageEditService>().generateImage("relight", "openai/gpt-image-1", "",
                                                   referencePng, std::nullopt, std::nullopt);
    const auto seen = server.seen().at(0);
    EXPECT_EQ(seen.path, "/v1/images/edits");
    const std::string prefix = "multipart/form-data; boundary=Boundary-";
    EXPECT_TRUE(seen.contentType.starts_with(prefix)) << seen.contentType;
    EXPECT_EQ(seen.contentType.size(), prefix.size() + 36); // a UUID

    const auto field = [](const std::string& name, const std::string& value) {
        return "--B\r\nContent-Disposition: form-data; name=\"" + name + "\"\r\n\r\n" + value +
               "\r\n";
    };
    const auto head = field("model", "m") + field("prompt", "relight") + field("n", "1");
    const auto image = "--B\r\nContent-Disposition: form-data; name=\"image\"; "
                       "filename=\"reference.png\"\r\nContent-Type: image/png\r\n\r\n" +
                       toText(referencePng) + "\r\n--B--\r\n";
    EXPECT_EQ(openAIEditBody("B", "m", "relight", std::string("1024x1024"), referencePng),
              head + field("size", "1024x1024") + image);
    EXPECT_EQ(openAIEditBody("B", "m", "relight", std::nullopt, referencePng), head + image);
}

TEST_F(ProviderClientTest, GeminiKeyInQueryImageAfterTextAndTextPartsSkipped) {
    server.answerWith(R"({"candidates":[{"content":{"parts":[{"text":"Here you go"},
        {"inline_data":{"mime_type":"image/jpeg"}},
        {"inline_data":{"mime_type":"image/png","data":"QUJD"}}]}}]})");
    const auto image = client<GeminiImageEditService>("g-key").generateImage(
        "a lake", "google/gemini-2.5-flash-image", "16:9", referencePng, std::string("calm"),
        std::nullopt);
    EXPECT_EQ(toText(image.data) + " " + image.contentType.value_or(""), "ABC image/png");
    const auto seen = server.seen().at(0);
    EXPECT_EQ(seen.path + "?" + seen.query + seen.authorization,
              "/v1beta/models/gemini-2.5-flash-image:generateContent?key=g-key");
    EXPECT_EQ(Json::parse(seen.body),
              Json::parse(R"({"contents":[{"role":"user","parts":[{"text":"calm\na lake"},
                  {"inline_data":{"mime_type":"image/png","data":")" +
                          encodeBase64(referencePng) + R"("}}]}]})"));
}

TEST_F(ProviderClientTest, TheGeminiKeyReachesNeitherErrorTextsNorLogs) {
    // As a real error page does, the answer echoes the request's path and query.
    server.respond([](const SeenRequest& seen, httplib::Response& r) {
        r.status = 404;
        r.set_content("<p>The requested URL <code>" + seen.path + "?" + seen.query +
                          "</code> was not found on this server.</p>",
                      "text/html");
    });
    for (const auto& logs : std::vector<std::optional<std::string>>{std::nullopt, "1"}) {
        ScopedEnvironment env("LUMIVESPER_NETWORK_LOGS", logs);
        std::pair<Case, std::string> failure;
        const auto console = testing::capturedStdout([&] {
            failure = failureOf([&] {
                client<GeminiImageEditService>("AIzaSecret-1")
                    .generateImage("p", "google/m", "", std::nullopt, std::nullopt, std::nullopt);
            });
        });
        EXPECT_EQ(failure.first, Case::requestFailed);
        EXPECT_EQ(failure.second, "Gemini error 404: <p>The requested URL "
                                  "<code>/v1beta/models/m:generateContent?key=REDACTED</code> was "
                                  "not found on this server.</p>");
        EXPECT_EQ(console.find("AIzaSecret"), std::string::npos) << console;
        EXPECT_EQ(console.empty(), !logs) << console;
    }
}

TEST_F(ProviderClientTest, OpenRouterFallsBackToChatOn405AndSendsAReferenceStraightThere) {
    server.respond([this](const SeenRequest& seen, httplib::Response& r) {
        if (seen.path == "/api/v1/images/generations")
            return replyJson(r, "Method Not Allowed", 405);
        if (seen.path == "/files/out.png")
            return r.set_content(testing::tinyPng(), "image/png");
        const bool relight = seen.body.find("image_url") != std::string::npos;
        replyJson(r,
                  R"({"choices":[{"message":{"images":[{"image_url":{"url":")" +
                      (relight ? server.url() + "/files/out.png" : "data:image/webp;base64,QUJD") +
                      R"("}}]}}]})");
    });
    const auto image = client<OpenRouterImageService>("or-key").generateImage(
        "a lake", "openrouter/stability/sd3", "16:9", std::nullopt, std::nullopt, std::nullopt);
    EXPECT_EQ(toText(image.data) + " " + image.contentType.value_or(""), "ABC image/webp");
    auto seen = server.seen();
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].title + ", " + seen[0].authorization, "Lumivesper AI, Bearer or-key");
    EXPECT_EQ(Json::parse(seen[0].body), Json::parse(R"({"model":"stability/sd3","prompt":"a lake",
        "n":1,"size":"16:9","response_format":"b64_json"})"));
    EXPECT_EQ(seen[1].path, "/api/v1/chat/completions");
    EXPECT_EQ(Json::parse(seen[1].body), Json::parse(R"({"model":"stability/sd3",
        "messages":[{"role":"user","content":"a lake"}],"modalities":["image","text"],
        "image_config":{"aspect_ratio":"16:9"}})"));

    const auto relit = client<OpenRouterImageService>().generateImage(
        "relight", "stability/sd3", "16:9", referencePng, std::string("keep the scene"),
        std::string("1024x576"));
    EXPECT_EQ(toText(relit.data) + " " + relit.contentType.value_or(""),
              testing::tinyPng() + " image/png");
    seen = server.seen();
    ASSERT_EQ(seen.size(), 4u);
    EXPECT_EQ(seen[2].path, "/api/v1/chat/completions");
    EXPECT_EQ(Json::parse(seen[2].body), Json::parse(R"({"model":"stability/sd3","messages":[
        {"role":"system","content":"keep the scene"},
        {"role":"user","content":[{"type":"image_url","image_url":{"url":")" +
                                                     pngDataURL(referencePng) + R"("}},
            {"type":"text","text":"relight"}]}],
        "modalities":["image","text"],
        "image_config":{"aspect_ratio":"16:9","image_size":"1024x576"}})"));
}

TEST_F(ProviderClientTest, AnImageUrlMustAnswer2xxWithAnImage) {
    server.respond([this](const SeenRequest& seen, httplib::Response& r) {
        if (seen.path == "/files/gone.png") {
            r.status = 404;
            return r.set_content("gone", "text/plain");
        }
        if (seen.path == "/files/page.png")
            return r.set_content("<html>sign in</html>", "text/html");
        const std::string file = seen.body.find("gone") != std::string::npos ? "gone" : "page";
        replyJson(r, R"({"data":[{"url":")" + server.url() + "/files/" + file + R"(.png"}]})");
    });
    for (const auto& [prompt, expected] :
         {std::pair{"gone", std::pair(Case::requestFailed, std::string("OpenAI error 404: gone"))},
          std::pair{"page",
                    std::pair(Case::decodeFailed, std::string("Failed to decode image data"))}})
        EXPECT_EQ(failureOf([&] {
                      client<OpenAIImageEditService>().generateImage(prompt, "m", "", std::nullopt,
                                                                     std::nullopt, std::nullopt);
                  }),
                  expected);
}

TEST_F(ProviderClientTest, RoutingReadsTheKeysAtEachCall) {
    const auto env = [](const char* name) {
        return std::make_shared<EnvironmentAPIKeyProvider>(name);
    };
    const MultiProviderImageService service(
        OpenAIImageEditService(env("OPENAI_API_KEY"), {}, server.url() + "/openai"),
        GeminiImageEditService(env("GEMINI_API_KEY"), {}, server.url() + "/gemini"),
        OpenRouterImageService(env("OPENROUTER_API_KEY"), {}, server.url() + "/or"));
    server.respond([](const SeenRequest& seen, httplib::Response& r) {
        replyJson(r, seen.path.starts_with("/gemini") ? geminiAnswer : openAIAnswer);
    });
    // The three keys, the model, whether any key counts, and how the path starts (empty: refused
    // for want of a key, nothing sent).
    using Key = std::optional<std::string>;
    const std::vector<std::tuple<Key, Key, Key, std::string, bool, std::string>> routes{
        {{}, {}, {}, "stability/sd3", false, ""},
        {{}, "g", {}, "stability/sd3", true, "/gemini/v1beta/models/sd3:"},
        {"o", "g", {}, "stability/sd3", true, "/openai/v1/images/generations"},
        {"o", "g", {}, "my-gemini-model", true, "/gemini/v1beta/models/my-gemini-model:"},
        {{}, "g", {}, "\n OpenAI/dall-e-3 ", true, ""},
        {{}, "g", {}, "openrouter/black-forest-labs/flux", true, ""},
        {{}, "g", {}, "openrouter/google/gemini-3", true, "/gemini/v1beta/models/google/gemini-3:"},
        {"", {}, {}, "openai/gpt-image-1", true, ""},
        {{}, {}, "r", "openrouter/black-forest-labs/flux", true, "/or/api/v1/images/generations"}};
    for (const auto& [openAIKey, geminiKey, openRouterKey, model, configured, path] : routes) {
        ScopedEnvironment openAI("OPENAI_API_KEY", openAIKey);
        ScopedEnvironment gemini("GEMINI_API_KEY", geminiKey);
        ScopedEnvironment openRouter("OPENROUTER_API_KEY", openRouterKey);
        EXPECT_EQ(service.isConfigured(), configured) << model;
        const auto before = server.seen().size();
        const auto call = [&] {
            service.generateImage("p", model, "16:9", std::nullopt, std::nullopt,
                                  std::string("1024x576"));
        };
        if (path.empty()) {
            EXPECT_EQ(failureOf(call).first, Case::missingAPIKey) << model;
            EXPECT_EQ(server.seen().size(), before);
            continue;
        }
        call();
        const auto seen = server.seen().back();
        EXPECT_TRUE(seen.path.starts_with(path)) << seen.path;
        EXPECT_TRUE(!path.starts_with("/gemini") || seen.body.find("1024") == std::string::npos)
            << "Gemini takes no size";
    }
}

TEST(NetworkLogTest, LinesOnlyWhenTheVariableIsExactlyOne) {
    const platform::HttpRequest request{
        "POST", "http://127.0.0.1:1/v1/images/generations", {}, R"({"prompt":"lake"})", {}};
    const platform::HttpResponse png{200, {}, "\x89PNG\r\n\x1a\n" + std::string(1226, '\0')};
    const auto everything = [&] {
        logPrompt("Gemini", std::string(), "a lake");
        logPrompt("Gemini", std::string("calm"), "a lake");
        logRequest("OpenAI-Images", request);
        logResponse("OpenAI-ImageFetch", &png);
    };
    for (const auto& value : std::vector<std::optional<std::string>>{{}, "true", "11", ""}) {
        ScopedEnvironment env("LUMIVESPER_NETWORK_LOGS", value);
        EXPECT_EQ(testing::capturedStdout(everything), "") << value.value_or("unset");
    }

    ScopedEnvironment on("LUMIVESPER_NETWORK_LOGS", "1");
    EXPECT_EQ(testing::capturedStdout(everything),
              "[Lumivesper AI][Prompt][Gemini] User: a lake\n"
              "[Lumivesper AI][Prompt][Gemini] System: calm\n"
              "[Lumivesper AI][Prompt][Gemini] User: a lake\n"
              "[Lumivesper AI][Network][OpenAI-Images] POST "
              "http://127.0.0.1:1/v1/images/generations\n"
              "[Lumivesper AI][Network][OpenAI-Images] Body: {\"prompt\":\"lake\"}\n"
              "[Lumivesper AI][Network][OpenAI-ImageFetch] Status: 200\n"
              "[Lumivesper AI][Network][OpenAI-ImageFetch] Body: <binary 1234 bytes>\n");
}

} // namespace
} // namespace lumivesper::generation
