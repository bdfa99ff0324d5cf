#include "generation/network_log.h"
#include "loopback_server.h"

#include <gtest/gtest.h>

namespace lumivesper::generation {
namespace {

using testing::ScopedEnvironment;

class NetworkLogTest : public ::testing::Test {
protected:
    std::string captured(const std::function<void()>& work) {
        ::testing::internal::CaptureStdout();
        work();
        return ::testing::internal::GetCapturedStdout();
    }

    platform::HttpRequest request() const {
        platform::HttpRequest r;
        r.method = "POST";
        r.url = "http://127.0.0.1:1/v1/images/generations";
        r.body = R"({"prompt":"lake"})";
        return r;
    }
};

TEST_F(NetworkLogTest, PrintsNothingUnlessExactlyOne) {
    for (const auto& value : {std::optional<std::string>(), std::optional<std::string>("true"),
                              std::optional<std::string>("11"), std::optional<std::string>("")}) {
        ScopedEnvironment env("LUMIVESPER_NETWORK_LOGS", value);
        EXPECT_EQ(captured([&] {
                      logPrompt("OpenAI", std::string("system"), "user");
                      logRequest("OpenAI", request());
                      platform::HttpResponse response;
                      logResponse("OpenAI", &response);
                  }),
                  "")
            << value.value_or("unset");
    }
}

TEST_F(NetworkLogTest, PromptLinesSkipEmptySystemPrompt) {
    ScopedEnvironment env("LUMIVESPER_NETWORK_LOGS", "1");
    EXPECT_EQ(captured([] { logPrompt("Gemini", std::string(), "a lake"); }),
              "[Lumivesper AI][Prompt][Gemini] User: a lake\n");
    EXPECT_EQ(captured([] { logPrompt("Gemini", std::string("calm"), "a lake"); }),
              "[Lumivesper AI][Prompt][Gemini] System: calm\n"
              "[Lumivesper AI][Prompt][Gemini] User: a lake\n");
}

TEST_F(NetworkLogTest, RequestAndResponseLines) {
    ScopedEnvironment env("LUMIVESPER_NETWORK_LOGS", "1");
    EXPECT_EQ(captured([&] { logRequest("OpenAI-Images", request()); }),
              "[Lumivesper AI][Network][OpenAI-Images] POST "
              "http://127.0.0.1:1/v1/images/generations\n"
              "[Lumivesper AI][Network][OpenAI-Images] Body: {\"prompt\":\"lake\"}\n");

    platform::HttpResponse png;
    png.status = 200;
    png.body = std::string("\x89PNG\r\n\x1a\n", 8) + std::string(1226, '\0');
    EXPECT_EQ(captured([&] { logResponse("OpenAI-ImageFetch", &png); }),
              "[Lumivesper AI][Network][OpenAI-ImageFetch] Status: 200\n"
              "[Lumivesper AI][Network][OpenAI-ImageFetch] Body: <binary 1234 bytes>\n");
    EXPECT_EQ(captured([] { logResponse("Gemini", nullptr); }),
              "[Lumivesper AI][Network][Gemini] Status: <nil>\n");

    platform::HttpRequest bare;
    bare.method = "";
    bare.url = "";
    EXPECT_EQ(captured([&] { logRequest("X", bare); }), "[Lumivesper AI][Network][X] GET <nil>\n");
}

} // namespace
} // namespace lumivesper::generation
