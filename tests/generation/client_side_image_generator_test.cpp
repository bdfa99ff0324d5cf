#include "../support/temporary_folder.h"
#include "generation/client_side_image_generator.h"
#include "generation/proxy_error.h"
#include "generation/request_text.h"
#include "loopback_server.h"
#include "platform/cancellation.h"

#include <atomic>
#include <future>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace lumivesper::generation {
namespace {

using testing::Gate;
using testing::LoopbackServer;
using Json = nlohmann::json;

// Stands in for our server: tokens, templates that make each request recognisable, and a proxy
// that answers every phase with the bytes "img:<phase>".
class GeneratorTest : public ::testing::Test {
protected:
    GeneratorTest() {
        server.server.Post("/api/token", [](const httplib::Request&, httplib::Response& r) {
            r.set_content(R"({"token":"T","expiresIn":3600})", "application/json");
        });
        server.server.Get("/api/prompts", [](const httplib::Request&, httplib::Response& r) {
            r.set_content(
                R"({"version":"t","updated":"","templates":{"original":"ORIGINAL {userPrompt}",
                "relight":"RELIGHT {phaseDescription}"}})",
                "application/json");
        });
        server.server.Post("/api/proxy/chat/completions",
                           [this](const httplib::Request& request, httplib::Response& r) {
                               handleProxy(request, r);
                           });
        server.start();
    }
    ~GeneratorTest() override { release.open(); }

    void handleProxy(const httplib::Request& request, httplib::Response& r) {
        const auto body = Json::parse(request.body);
        const auto& content = body.at("messages").at(0).at("content");
        std::string phase = "original";
        std::string reference;
        if (content.is_array()) {
            const std::string text = content.at(0).at("text");
            for (const auto& descriptor : lightingPhases)
                if (text == "RELIGHT " + std::string(descriptor.timeOfDay) + ". " +
                                std::string(descriptor.description))
                    phase = descriptor.name;
            reference = content.at(1).at("image_url").at("url");
        } else {
            EXPECT_EQ(content, "ORIGINAL a lake at dawn");
        }
        {
            std::lock_guard lock(mutex);
            requestedPhases.push_back(phase);
            references.push_back(reference);
        }
        if (hook)
            hook(phase, r);
        if (r.status == 500)
            return;
        r.set_content(R"({"choices":[{"message":{"images":[{"image_url":{"url":")" +
                          pngDataURL(toBytes("img:" + phase)) + R"("}}]}}]})",
                      "application/json");
    }

    ClientSideImageGenerator generator() {
        ClientSideImageGenerator made(server.url(), defaults);
        made.onProgress = [this](int completed, int total, const std::string& message) {
            std::lock_guard lock(mutex);
            progress.push_back({completed, total, message});
        };
        made.onPhaseStarted = [this](const std::string& name) {
            std::lock_guard lock(mutex);
            started.push_back(name);
        };
        made.onImageGenerated = [this](const Bytes& bytes, const std::string& name) {
            {
                std::lock_guard lock(mutex);
                generated.push_back(name + "=" + toText(bytes));
            }
            if (imageHook)
                imageHook(name);
        };
        return made;
    }

    std::vector<std::string> resultTexts(const std::vector<GeneratedImage>& images) {
        std::vector<std::string> texts;
        for (const auto& image : images) {
            EXPECT_EQ(image.contentType, "image/png");
            texts.push_back(toText(image.data));
        }
        return texts;
    }

    static std::vector<std::string> relitTexts() {
        std::vector<std::string> texts;
        for (const auto& phase : lightingPhases)
            texts.push_back("img:" + std::string(phase.name));
        return texts;
    }

    struct Progress {
        int completed;
        int total;
        std::string message;
        bool operator==(const Progress&) const = default;
    };

    lumivesper::testing::TemporaryFolder folder;
    settings::Defaults defaults{folder.path() / "defaults.json"};
    std::mutex mutex;
    std::vector<std::string> requestedPhases;
    std::vector<std::string> references;
    std::vector<Progress> progress;
    std::vector<std::string> started;
    std::vector<std::string> generated;
    std::function<void(const std::string& phase, httplib::Response&)> hook;
    std::function<void(const std::string& phase)> imageHook;
    Gate release;
    std::atomic<int> heldToTheEnd{0};
    LoopbackServer server; // last: stopped first
};

TEST_F(GeneratorTest, TextRunMakesElevenImagesInTableOrder) {
    auto run = generator();
    const auto images = run.generateTimeline(
        "a lake at dawn", "openrouter/google/gemini-3-pro-image-preview", std::nullopt);
    auto expected = relitTexts();
    expected.insert(expected.begin(), "img:original");
    EXPECT_EQ(resultTexts(images), expected);

    EXPECT_EQ(requestedPhases.size(), 11u);
    EXPECT_EQ(requestedPhases.front(), "original");
    for (std::size_t i = 1; i < references.size(); ++i)
        EXPECT_EQ(references[i], pngDataURL(toBytes("img:original")))
            << "all relights use the base";

    const std::vector<Progress> expectedProgress{
        {0, 11, "Generating original image..."}, {1, 11, "Original complete, relighting..."},
        {4, 11, "Completed 4/11 images..."},     {7, 11, "Completed 7/11 images..."},
        {10, 11, "Completed 10/11 images..."},   {11, 11, "Completed 11/11 images..."}};
    EXPECT_EQ(progress, expectedProgress);
    EXPECT_EQ(std::count(started.begin(), started.end(), "night"), 2);
    EXPECT_EQ(started.size(), 11u);
    EXPECT_EQ(generated.front(), "night=img:original");
    EXPECT_EQ(generated.size(), 11u);
}

TEST_F(GeneratorTest, ReferenceRunRelightsTheGivenImageOnly) {
    auto run = generator();
    const Bytes reference = toBytes("my photo");
    const auto images = run.generateTimeline("ignored", "m", reference);
    auto expected = relitTexts();
    expected.insert(expected.begin(), "my photo");
    EXPECT_EQ(resultTexts(images), expected);

    EXPECT_EQ(requestedPhases.size(), 10u);
    EXPECT_EQ(std::count(requestedPhases.begin(), requestedPhases.end(), "original"), 0);
    for (const auto& sent : references)
        EXPECT_EQ(sent, pngDataURL(reference));
    EXPECT_EQ(progress.front(), (Progress{0, 11, "Using reference image..."}));
    EXPECT_EQ(progress.back(), (Progress{11, 11, "Completed 11/11 images..."}));
    EXPECT_EQ(std::count(started.begin(), started.end(), "night"), 1);
    EXPECT_EQ(generated.front(), "night=my photo");
}

TEST_F(GeneratorTest, ResultsKeepTableOrderWhenMiddayFinishesLast) {
    // Batch three is midday, afternoon, golden_pm: hold midday until golden_pm has arrived.
    Gate goldenPmArrived;
    imageHook = [&](const std::string& phase) {
        if (phase == "golden_pm")
            goldenPmArrived.open();
    };
    hook = [&](const std::string& phase, httplib::Response&) {
        if (phase == "midday") {
            EXPECT_TRUE(goldenPmArrived.wait());
        }
    };
    auto run = generator();
    const auto images = run.generateTimeline("", "m", toBytes("base"));
    auto expected = relitTexts();
    expected.insert(expected.begin(), "base");
    EXPECT_EQ(resultTexts(images), expected);

    const auto midday = std::find(generated.begin(), generated.end(), "midday=img:midday");
    const auto goldenPm = std::find(generated.begin(), generated.end(), "golden_pm=img:golden_pm");
    EXPECT_LT(goldenPm, midday) << "the callbacks saw midday last";
}

TEST_F(GeneratorTest, FailureInSecondBatchCancelsTheRest) {
    // Batch two is civil, golden_am, morning: morning fails while the other two are held.
    hook = [&](const std::string& phase, httplib::Response& r) {
        if (phase == "morning") {
            r.status = 500;
            r.set_content("model overloaded", "text/plain");
            return;
        }
        if (phase == "civil" || phase == "golden_am") {
            release.wait(std::chrono::seconds(60));
            ++heldToTheEnd;
        }
    };
    auto run = generator();
    try {
        run.generateTimeline("", "m", toBytes("base"));
        FAIL() << "the run succeeded";
    } catch (const ProxyError& error) {
        EXPECT_EQ(error.description(), "Server error 500: model overloaded");
    }
    // The held requests were abandoned, not waited for.
    EXPECT_EQ(heldToTheEnd, 0);
    release.open();

    std::lock_guard lock(mutex);
    EXPECT_EQ(requestedPhases.size(), 6u) << "no phase of batch three was asked for";
    EXPECT_LE(generated.size(), 7u);
    EXPECT_EQ(generated.front(), "night=base");
    EXPECT_EQ(std::count(generated.begin(), generated.end(), "civil=img:civil"), 0);
    EXPECT_EQ(progress.back().completed, 4);
}

TEST_F(GeneratorTest, StoppingTheRunCancelsRequestsInFlight) {
    Gate arrived;
    hook = [&](const std::string& phase, httplib::Response&) {
        if (phase == "nautical") {
            arrived.open();
            release.wait(std::chrono::seconds(60));
            ++heldToTheEnd;
        }
    };
    auto run = generator();
    std::stop_source stop;
    auto result = std::async(std::launch::async, [&] {
        return run.generateTimeline("", "m", toBytes("base"), stop.get_token());
    });
    ASSERT_TRUE(arrived.wait());
    stop.request_stop();
    ASSERT_EQ(result.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    EXPECT_THROW(result.get(), platform::CancellationError);
    EXPECT_EQ(heldToTheEnd, 0);
    release.open();
    std::lock_guard lock(mutex);
    EXPECT_LE(requestedPhases.size(), 3u) << "batch two never started";
}

} // namespace
} // namespace lumivesper::generation
