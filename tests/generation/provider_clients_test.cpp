#include "generation/gemini_image_edit_service.h"
#include "generation/image_generation_error.h"
#include "generation/multi_provider_image_service.h"
#include "generation/openai_image_edit_service.h"
#include "generation/openrouter_image_service.h"
#include "generation/request_text.h"
#include "platform/cancellation.h"
#include "provider_fixture.h"

#include <future>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace lumivesper::generation {
namespace {

using testing::FixedKey;
using testing::Gate;
using testing::RecordingServer;
using testing::replyJson;
using testing::ScopedEnvironment;
using testing::SeenRequest;

using Json = nlohmann::json;

const Bytes referencePng = toBytes(std::string("\x89PNG\r\n\x1a\n\0\x01", 10));

template <typename Call> ImageGenerationError::Case failureOf(Call call) {
    try {
        call();
    } catch (const ImageGenerationError& error) {
        return error.kind();
    }
    ADD_FAILURE() << "no ImageGenerationError";
    return ImageGenerationError::Case::invalidResponse;
}

class ProviderClientTest : public ::testing::Test {
protected:
    std::shared_ptr<const APIKeyProvider> key(std::optional<std::string> value = "sk-test") {
        return std::make_shared<FixedKey>(std::move(value));
    }
    OpenAIImageEditService openAI(std::optional<std::string> value = "sk-test") {
        return OpenAIImageEditService(key(std::move(value)), {}, server.url());
    }
    GeminiImageEditService gemini() {
        return GeminiImageEditService(key("g-key"), {}, server.url());
    }
    OpenRouterImageService openRouter() {
        return OpenRouterImageService(key("or-key"), {}, server.url());
    }

    RecordingServer server;
};

// ---- OpenAI

TEST_F(ProviderClientTest, OpenAIGenerationSendsJsonWithShortModelAndNormalisedSize) {
    server.respond([](const SeenRequest&, httplib::Response& r) {
        replyJson(r, R"({"data":[{"b64_json":"QU\nJD","content_type":"image/webp"}]})");
    });
    const auto image = openAI().generateImage("a lake", "openai/gpt-image-1", "16:9", std::nullopt,
                                              std::string("Be calm."), std::string("1024x576"));
    EXPECT_EQ(toText(image.data), "ABC");
    EXPECT_EQ(image.contentType, "image/webp");

    const auto seen = server.seen();
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].path, "/v1/images/generations");
    EXPECT_EQ(seen[0].authorization, "Bearer sk-test");
    EXPECT_EQ(seen[0].contentType, "application/json");
    EXPECT_EQ(Json::parse(seen[0].body), Json::parse(R"({"model":"gpt-image-1",
        "prompt":"Be calm.\na lake","n":1,"size":"1536x1024"})"));
}

TEST_F(ProviderClientTest, OpenAIGenerationLeavesOutUnknownSize) {
    server.respond([](const SeenRequest&, httplib::Response& r) {
        replyJson(r, R"({"data":[{"b64_json":"QUJD"}]})");
    });
    const auto image = openAI().generateImage("a lake", "gpt-image-1", "16:9", std::nullopt,
                                              std::nullopt, std::nullopt);
    EXPECT_FALSE(image.contentType);
    const auto body = Json::parse(server.seen().at(0).body);
    EXPECT_EQ(body.at("model"), "gpt-image-1");
    EXPECT_FALSE(body.contains("size"));
}

TEST_F(ProviderClientTest, OpenAIEditIsMultipartEndingWithReferencePng) {
    server.respond([](const SeenRequest&, httplib::Response& r) {
        replyJson(r, R"({"data":[{"b64_json":"QUJD"}]})");
    });
    openAI().generateImage("relight", "openai/gpt-image-1", "", referencePng, std::nullopt,
                           std::string("1024x1024"));

    const auto seen = server.seen().at(0);
    EXPECT_EQ(seen.path, "/v1/images/edits");
    EXPECT_EQ(seen.authorization, "Bearer sk-test");
    const std::string prefix = "multipart/form-data; boundary=";
    ASSERT_TRUE(seen.contentType.starts_with(prefix)) << seen.contentType;
    const std::string boundary = seen.contentType.substr(prefix.size());
    ASSERT_TRUE(boundary.starts_with("Boundary-"));
    ASSERT_EQ(boundary.size(), std::string("Boundary-").size() + 36);

    ASSERT_EQ(seen.parts.size(), 5u);
    EXPECT_EQ(seen.parts.at("model").content, "gpt-image-1");
    EXPECT_EQ(seen.parts.at("prompt").content, "relight");
    EXPECT_EQ(seen.parts.at("n").content, "1");
    EXPECT_EQ(seen.parts.at("size").content, "1024x1024");
    const auto& image = seen.parts.at("image");
    EXPECT_EQ(image.filename, "reference.png");
    EXPECT_EQ(image.content_type, "image/png");
    EXPECT_EQ(image.content, toText(referencePng));
}

TEST_F(ProviderClientTest, OpenAIEditBodyLayout) {
    const std::string expected =
        "--B-1\r\nContent-Disposition: form-data; name=\"model\"\r\n\r\ngpt-image-1\r\n"
        "--B-1\r\nContent-Disposition: form-data; name=\"prompt\"\r\n\r\nrelight\r\n"
        "--B-1\r\nContent-Disposition: form-data; name=\"n\"\r\n\r\n1\r\n"
        "--B-1\r\nContent-Disposition: form-data; name=\"size\"\r\n\r\n1024x1024\r\n"
        "--B-1\r\nContent-Disposition: form-data; name=\"image\"; filename=\"reference.png\"\r\n"
        "Content-Type: image/png\r\n\r\n" +
        toText(referencePng) + "\r\n--B-1--\r\n";
    EXPECT_EQ(
        openAIEditBody("B-1", "gpt-image-1", "relight", std::string("1024x1024"), referencePng),
        expected);
}

TEST_F(ProviderClientTest, OpenAIEditWithoutSizeHasNoSizePart) {
    const std::string body = openAIEditBody("B", "m", "p", std::nullopt, toBytes("x"));
    EXPECT_EQ(body.find("name=\"size\""), std::string::npos);
    EXPECT_TRUE(body.ends_with("filename=\"reference.png\"\r\nContent-Type: image/png\r\n\r\nx\r\n"
                               "--B--\r\n"));
}

TEST_F(ProviderClientTest, OpenAIFetchesUrlAnswerWhateverItsStatus) {
    server.respond([this](const SeenRequest& seen, httplib::Response& r) {
        if (seen.path == "/v1/images/generations")
            return replyJson(r, R"({"data":[{"url":")" + server.url() + R"(/files/x.png"}]})");
        r.status = 404;
        r.set_content("PNGBYTES", "image/png");
    });
    const auto image =
        openAI().generateImage("p", "gpt-image-1", "", std::nullopt, std::nullopt, std::nullopt);
    EXPECT_EQ(toText(image.data), "PNGBYTES");
    EXPECT_EQ(image.contentType, "image/png");
    EXPECT_EQ(server.seen().at(1).path, "/files/x.png");
    EXPECT_EQ(server.seen().at(1).authorization, ""); // the key stays with the provider
}

TEST_F(ProviderClientTest, OpenAIFailures) {
    auto call = [this](std::optional<std::string> key = "sk-test") {
        openAI(std::move(key))
            .generateImage("p", "gpt-image-1", "", std::nullopt, std::nullopt, std::nullopt);
    };
    server.respond([](const SeenRequest&, httplib::Response& r) { replyJson(r, "boom", 500); });
    try {
        call();
        FAIL();
    } catch (const ImageGenerationError& error) {
        EXPECT_EQ(error.kind(), ImageGenerationError::Case::requestFailed);
        EXPECT_EQ(error.description(), "OpenAI error 500: boom");
    }
    server.respond([](const SeenRequest&, httplib::Response& r) { replyJson(r, "\xff\xfe", 400); });
    try {
        call();
        FAIL();
    } catch (const ImageGenerationError& error) {
        EXPECT_EQ(error.description(), "OpenAI error 400: Unknown error");
    }
    server.respond(
        [](const SeenRequest&, httplib::Response& r) { replyJson(r, R"({"data":[]})"); });
    EXPECT_EQ(failureOf(call), ImageGenerationError::Case::invalidResponse);
    server.respond(
        [](const SeenRequest&, httplib::Response& r) { replyJson(r, R"({"data":[{}]})"); });
    EXPECT_EQ(failureOf(call), ImageGenerationError::Case::decodeFailed);

    const auto before = server.seen().size();
    EXPECT_EQ(failureOf([&] { call(std::string()); }), ImageGenerationError::Case::missingAPIKey);
    EXPECT_EQ(failureOf([&] { call(std::nullopt); }), ImageGenerationError::Case::missingAPIKey);
    EXPECT_EQ(server.seen().size(), before);
    EXPECT_EQ(ImageGenerationError::missingAPIKey().description(), "Missing API key");
}

// ---- Gemini

TEST_F(ProviderClientTest, GeminiPutsKeyInQueryAndImageAfterText) {
    server.respond([](const SeenRequest&, httplib::Response& r) {
        replyJson(r, R"({"candidates":[{"content":{"parts":[{"text":"Here you go"},
            {"inline_data":{"mime_type":"image/jpeg"}},
            {"inline_data":{"mime_type":"image/png","data":"QUJD"}}]}}]})");
    });
    const auto image = gemini().generateImage("a lake", "google/gemini-2.5-flash-image", "16:9",
                                              referencePng, std::string("calm"), std::nullopt);
    EXPECT_EQ(toText(image.data), "ABC");
    EXPECT_EQ(image.contentType, "image/png");

    const auto seen = server.seen().at(0);
    EXPECT_EQ(seen.path, "/v1beta/models/gemini-2.5-flash-image:generateContent");
    EXPECT_EQ(seen.query, "key=g-key");
    EXPECT_EQ(seen.authorization, "");
    EXPECT_EQ(Json::parse(seen.body),
              Json::parse(R"({"contents":[{"role":"user","parts":[{"text":"calm\na lake"},
                  {"inline_data":{"mime_type":"image/png","data":")" +
                          encodeBase64(referencePng) + R"("}}]}]})"));
}

TEST_F(ProviderClientTest, GeminiModelWithoutSlashAndTextOnlyAnswers) {
    server.respond([](const SeenRequest&, httplib::Response& r) {
        replyJson(r, R"({"candidates":[{"content":{"parts":[{"text":"I cannot draw that"}]}}]})");
    });
    auto call = [this] {
        gemini().generateImage("p", "gemini-x", "", std::nullopt, std::nullopt, std::nullopt);
    };
    EXPECT_EQ(failureOf(call), ImageGenerationError::Case::decodeFailed);
    EXPECT_EQ(server.seen().at(0).path, "/v1beta/models/gemini-x:generateContent");
    EXPECT_EQ(Json::parse(server.seen().at(0).body).at("contents").at(0).at("parts").size(), 1u);

    server.respond([](const SeenRequest&, httplib::Response& r) { replyJson(r, R"({})"); });
    EXPECT_EQ(failureOf(call), ImageGenerationError::Case::decodeFailed);
    server.respond([](const SeenRequest&, httplib::Response& r) { replyJson(r, "nope", 403); });
    EXPECT_EQ(failureOf(call), ImageGenerationError::Case::requestFailed);
}

TEST_F(ProviderClientTest, GeminiKeyReachesTheConsoleOnlyWithTheNetworkLog) {
    server.respond([](const SeenRequest&, httplib::Response& r) {
        replyJson(r, R"({"candidates":[{"content":{"parts":[{"inline_data":{"data":"QUJD"}}]}}]})");
    });
    auto call = [this] {
        ::testing::internal::CaptureStdout();
        gemini().generateImage("p", "gemini-x", "", std::nullopt, std::nullopt, std::nullopt);
        return ::testing::internal::GetCapturedStdout();
    };
    {
        ScopedEnvironment off("LUMIVESPER_NETWORK_LOGS", std::nullopt);
        EXPECT_EQ(call().find("g-key"), std::string::npos);
    }
    ScopedEnvironment on("LUMIVESPER_NETWORK_LOGS", "1");
    const auto output = call();
    EXPECT_NE(output.find("[Lumivesper AI][Network][Gemini] POST " + server.url() +
                          "/v1beta/models/gemini-x:generateContent?key=g-key"),
              std::string::npos)
        << output;
    EXPECT_NE(output.find("[Lumivesper AI][Prompt][Gemini] User: p"), std::string::npos);
    EXPECT_NE(output.find("[Lumivesper AI][Network][Gemini] Status: 200"), std::string::npos);
}

// ---- OpenRouter

TEST_F(ProviderClientTest, OpenRouterFallsBackToChatOn405) {
    server.respond([](const SeenRequest& seen, httplib::Response& r) {
        if (seen.path == "/api/v1/images/generations")
            return replyJson(r, "Method Not Allowed", 405);
        replyJson(r, R"({"choices":[{"message":{"images":[{"image_url":
            {"url":"data:image/webp;base64,QUJD"}}]}}]})");
    });
    const auto image = openRouter().generateImage("a lake", "openrouter/stability/sd3", "16:9",
                                                  std::nullopt, std::nullopt, std::nullopt);
    EXPECT_EQ(toText(image.data), "ABC");
    EXPECT_EQ(image.contentType, "image/webp");

    const auto seen = server.seen();
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].title, "Lumivesper AI");
    EXPECT_EQ(seen[0].authorization, "Bearer or-key");
    EXPECT_EQ(Json::parse(seen[0].body), Json::parse(R"({"model":"stability/sd3","prompt":"a lake",
        "n":1,"size":"16:9","response_format":"b64_json"})"));
    EXPECT_EQ(seen[1].path, "/api/v1/chat/completions");
    EXPECT_EQ(Json::parse(seen[1].body), Json::parse(R"({"model":"stability/sd3",
        "messages":[{"role":"user","content":"a lake"}],"modalities":["image","text"],
        "image_config":{"aspect_ratio":"16:9"}})"));
}

TEST_F(ProviderClientTest, OpenRouterServerErrorHasNoFallback) {
    server.respond(
        [](const SeenRequest&, httplib::Response& r) { replyJson(r, "upstream down", 500); });
    try {
        openRouter().generateImage("p", "stability/sd3", "1:1", std::nullopt, std::nullopt,
                                   std::nullopt);
        FAIL();
    } catch (const ImageGenerationError& error) {
        EXPECT_EQ(error.description(), "OpenRouter error 500: upstream down");
    }
    EXPECT_EQ(server.seen().size(), 1u);
}

TEST_F(ProviderClientTest, OpenRouterChatModelsAndReferenceImagesGoStraightToChat) {
    server.respond([this](const SeenRequest& seen, httplib::Response& r) {
        if (seen.path == "/files/out.png") {
            r.status = 200;
            return r.set_content("PNG", "image/png");
        }
        replyJson(r, R"({"choices":[{"message":{"images":[{"image_url":{"url":")" + server.url() +
                         R"(/files/out.png"}}]}}]})");
    });
    openRouter().generateImage("p", "openrouter/openai/gpt-image-1", "", std::nullopt, std::nullopt,
                               std::nullopt);
    auto seen = server.seen();
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].path, "/api/v1/chat/completions");
    EXPECT_FALSE(Json::parse(seen[0].body).contains("image_config"));

    const auto image =
        openRouter().generateImage("relight", "stability/sd3", "16:9", referencePng,
                                   std::string("keep the scene"), std::string("1024x576"));
    EXPECT_EQ(toText(image.data), "PNG");
    EXPECT_EQ(image.contentType, "image/png");
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
    EXPECT_EQ(seen[3].path, "/files/out.png");
}

TEST(OpenRouterModelTest, NeedsChat) {
    EXPECT_TRUE(openRouterModelNeedsChat("google/gemini-3-pro-image-preview"));
    EXPECT_TRUE(openRouterModelNeedsChat("openai/gpt-image-1"));
    EXPECT_TRUE(openRouterModelNeedsChat("x/my-gpt-5"));
    EXPECT_TRUE(openRouterModelNeedsChat("Vendor/Gemini"));
    EXPECT_FALSE(openRouterModelNeedsChat("stability/sd3"));
    EXPECT_FALSE(openRouterModelNeedsChat("black-forest-labs/flux"));
}

// ---- Routing through the environment

class RoutingTest : public ProviderClientTest {
protected:
    RoutingTest()
        : service(OpenAIImageEditService(env("OPENAI_API_KEY"), {}, server.url() + "/openai"),
                  GeminiImageEditService(env("GEMINI_API_KEY"), {}, server.url() + "/gemini"),
                  OpenRouterImageService(env("OPENROUTER_API_KEY"), {}, server.url() + "/or")) {
        server.respond([](const SeenRequest& seen, httplib::Response& r) {
            if (seen.path.starts_with("/gemini"))
                return replyJson(
                    r,
                    R"({"candidates":[{"content":{"parts":[{"inline_data":{"data":"QUJD"}}]}}]})");
            replyJson(r, R"({"data":[{"b64_json":"QUJD"}]})");
        });
    }
    static std::shared_ptr<const APIKeyProvider> env(const char* name) {
        return std::make_shared<EnvironmentAPIKeyProvider>(name);
    }
    std::string routedPath(const std::string& model) {
        service.generateImage("p", model, "16:9", std::nullopt, std::nullopt, std::nullopt);
        return server.seen().back().path;
    }

    ScopedEnvironment openAIKey{"OPENAI_API_KEY", std::nullopt};
    ScopedEnvironment geminiKey{"GEMINI_API_KEY", std::nullopt};
    ScopedEnvironment openRouterKey{"OPENROUTER_API_KEY", std::nullopt};
    MultiProviderImageService service;
};

TEST_F(RoutingTest, NoKeysMeansNotConfiguredAndMissingKey) {
    EXPECT_FALSE(service.isConfigured());
    EXPECT_EQ(failureOf([&] { routedPath("stability/sd3"); }),
              ImageGenerationError::Case::missingAPIKey);
    EXPECT_TRUE(server.seen().empty());
}

TEST_F(RoutingTest, AutomaticTakesFirstProviderWithAKey) {
    ScopedEnvironment gemini("GEMINI_API_KEY", "g");
    EXPECT_TRUE(service.isConfigured());
    EXPECT_EQ(routedPath("stability/sd3"), "/gemini/v1beta/models/sd3:generateContent");
    ScopedEnvironment openAI("OPENAI_API_KEY", "o");
    EXPECT_EQ(routedPath("stability/sd3"), "/openai/v1/images/generations");
}

TEST_F(RoutingTest, NamedProviderWithoutKeyDoesNotFallBack) {
    ScopedEnvironment gemini("GEMINI_API_KEY", "g");
    EXPECT_EQ(failureOf([&] { routedPath("openai/gpt-image-1"); }),
              ImageGenerationError::Case::missingAPIKey);
    EXPECT_EQ(failureOf([&] { routedPath("openrouter/black-forest-labs/flux"); }),
              ImageGenerationError::Case::missingAPIKey);
    EXPECT_TRUE(server.seen().empty());
    EXPECT_EQ(routedPath("openrouter/google/gemini-3-pro-image-preview"),
              "/gemini/v1beta/models/google/gemini-3-pro-image-preview:generateContent");
}

TEST_F(RoutingTest, EmptyKeyCountsAsConfiguredButCannotCall) {
    ScopedEnvironment openAI("OPENAI_API_KEY", "");
    EXPECT_TRUE(service.isConfigured());
    EXPECT_EQ(failureOf([&] { routedPath("openai/gpt-image-1"); }),
              ImageGenerationError::Case::missingAPIKey);
}

TEST_F(RoutingTest, GeminiGetsNoSize) {
    ScopedEnvironment gemini("GEMINI_API_KEY", "g");
    service.generateImage("p", "google/x", "16:9", std::nullopt, std::nullopt,
                          std::string("1024x576"));
    EXPECT_EQ(server.seen().back().body.find("1024"), std::string::npos);
}

TEST_F(RoutingTest, OpenRouterRouteWithKey) {
    ScopedEnvironment openRouter("OPENROUTER_API_KEY", "r");
    EXPECT_EQ(routedPath("openrouter/black-forest-labs/flux"), "/or/api/v1/images/generations");
}

// ---- Time-outs and cancellation

class SlowProviderTest : public ProviderClientTest {
protected:
    SlowProviderTest() {
        server.respond([this](const SeenRequest&, httplib::Response& r) {
            arrived.open();
            release.wait();
            replyJson(r, R"({"data":[{"b64_json":"QUJD"}]})");
        });
    }
    ~SlowProviderTest() override { release.open(); }

    Gate arrived;
    Gate release;
};

TEST_F(SlowProviderTest, RequestTimesOut) {
    NetworkSession session;
    session.maximumTimeout = std::chrono::milliseconds(300);
    const OpenAIImageEditService client(key(), session, server.url());
    try {
        client.generateImage("p", "gpt-image-1", "", std::nullopt, std::nullopt, std::nullopt);
        FAIL() << "no time-out";
    } catch (const platform::HttpError& error) {
        EXPECT_EQ(error.kind(), platform::HttpError::Kind::timedOut);
    }
}

TEST_F(SlowProviderTest, StopCancelsRequestInFlight) {
    const auto client = openAI();
    std::stop_source stop;
    auto call = std::async(std::launch::async, [&] {
        return client.generateImage("p", "gpt-image-1", "", std::nullopt, std::nullopt,
                                    std::nullopt, stop.get_token());
    });
    ASSERT_TRUE(arrived.wait());
    stop.request_stop();
    ASSERT_EQ(call.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_THROW(call.get(), platform::CancellationError);
}

} // namespace
} // namespace lumivesper::generation
