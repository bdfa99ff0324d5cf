#include "../support/temporary_folder.h"
#include "cli/command.h"
#include "generation/client_side_image_generator.h"
#include "generation/proxy_error.h"
#include "generation/request_text.h"
#include "loopback_server.h"
#include "platform/cancellation.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <future>
#include <sstream>

namespace lumivesper::generation {
namespace {

constexpr const char* proxyPath = "/api/proxy/chat/completions";

// "original" for the text-only request, else the phase whose description the text carries.
std::string phaseOf(const testing::SeenRequest& seen) {
    const auto content = nlohmann::json::parse(seen.body).at("messages").at(0).at("content");
    for (const auto& phase : lightingPhases)
        if (content.is_array() && content[0]["text"] == "RELIGHT " + std::string(phase.timeOfDay) +
                                                            ". " + std::string(phase.description))
            return std::string(phase.name);
    return "original";
}

class GeneratorTest : public ::testing::Test {
protected:
    // Our server for a whole timeline run: the proxy answers each phase with the bytes
    // "img:<phase>" unless `hook` holds it back or answers it with a status other than 200.
    GeneratorTest() {
        server.respond([this](const testing::SeenRequest& seen, httplib::Response& r) {
            if (seen.path == "/api/token")
                return testing::replyJson(r, R"({"token":"T","expiresIn":3600})");
            if (seen.path == "/api/prompts")
                return testing::replyJson(r, R"({"version":"t","updated":"","templates":{
                    "original":"ORIGINAL {userPrompt}","relight":"RELIGHT {phaseDescription}"}})");
            const auto phase = phaseOf(seen);
            if (hook)
                hook(phase, r);
            if (r.status == -1 || r.status == 200)
                testing::replyJson(r, R"({"choices":[{"message":{"images":[{"image_url":{"url":")" +
                                          pngDataURL(toBytes("img:" + phase)) + R"("}}]}}]})");
        });
    }
    ~GeneratorTest() override { release.open(); }

    // The callbacks fire on any thread; each records under one lock.
    ClientSideImageGenerator generator() {
        ClientSideImageGenerator made(server.url(), defaults);
        made.onProgress = [this](int done, int total, const std::string& message) {
            std::lock_guard lock(mutex);
            progress.push_back(std::to_string(done) + "/" + std::to_string(total) + " " + message);
        };
        made.onImageGenerated = [this](const Bytes& bytes, const std::string& name) {
            std::lock_guard lock(mutex);
            generated.push_back(name + "=" + toText(bytes));
            if (name == "golden_pm")
                goldenPmGenerated.open();
        };
        return made;
    }
    // Checks that a finished run gave `base`, then "img:<phase>" in table order, all as PNG.
    static void expectTimeline(const std::vector<GeneratedImage>& images, const std::string& base) {
        std::vector<std::string> expected{base + " image/png"}, found;
        for (const auto& phase : lightingPhases)
            expected.push_back("img:" + std::string(phase.name) + " image/png");
        for (const auto& image : images)
            found.push_back(toText(image.data) + " " + image.contentType.value_or(""));
        EXPECT_EQ(found, expected);
    }
    int run(std::vector<std::string> arguments) {
        testing::ScopedEnvironment serverURL("API_SERVER_URL", server.url());
        testing::ScopedEnvironment config("LUMIVESPER_CONFIG_DIR", (folder.path() / "c").string());
        err.str("");
        std::ostringstream out;
        int code = 0; // the generator's own log lines go to the console
        testing::capturedStdout([&] { code = cli::runGenerate({std::move(arguments), out, err}); });
        return code;
    }
    std::string file(const std::string& name) const { // empty when absent
        std::ifstream stream(output / name, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(stream), {});
    }
    std::vector<std::string> sentReferences() const {
        std::vector<std::string> urls;
        for (const auto& seen : server.seen(proxyPath))
            if (auto content = nlohmann::json::parse(seen.body)["messages"][0]["content"];
                content.is_array())
                urls.push_back(content[1]["image_url"]["url"]);
        return urls;
    }
    lumivesper::testing::TemporaryFolder folder;
    settings::Defaults defaults{folder.path() / "defaults.json"};
    std::mutex mutex;
    const std::filesystem::path output = folder.path() / "out" / "day";
    std::ostringstream err;
    std::vector<std::string> progress, generated;
    testing::Gate goldenPmGenerated, arrived, release;
    std::atomic<int> heldToTheEnd{0};
    std::function<void(const std::string& phase, httplib::Response&)> hook;
    testing::RecordingServer server; // last: stopped first
};

TEST_F(GeneratorTest, TextRunMakesElevenImagesInTableOrder) {
    expectTimeline(generator().generateTimeline("a lake at dawn",
                                                "openrouter/google/gemini-3-pro-image-preview", {}),
                   "img:original");
    const auto proxied = server.seen(proxyPath);
    ASSERT_EQ(proxied.size(), 11u);
    EXPECT_EQ(nlohmann::json::parse(proxied[0].body)["messages"][0]["content"],
              "ORIGINAL a lake at dawn");
    EXPECT_EQ(sentReferences(), std::vector(10, pngDataURL(toBytes("img:original"))));
    EXPECT_EQ(progress,
              (std::vector<std::string>{
                  "0/11 Generating original image...", "1/11 Original complete, relighting...",
                  "4/11 Completed 4/11 images...", "7/11 Completed 7/11 images...",
                  "10/11 Completed 10/11 images...", "11/11 Completed 11/11 images..."}));
}

TEST_F(GeneratorTest, ReferenceRunRelightsTheGivenImageAndKeepsTableOrderWhenMiddayIsLast) {
    // Batch three is midday, afternoon, golden_pm: hold midday until golden_pm is through.
    hook = [&](const std::string& phase, httplib::Response&) {
        if (phase == "midday") {
            EXPECT_TRUE(goldenPmGenerated.wait());
        }
    };
    const Bytes reference = toBytes("my photo");
    expectTimeline(generator().generateTimeline("ignored", "m", reference), "my photo");
    EXPECT_EQ(server.seen(proxyPath).size(), 10u);
    EXPECT_EQ(sentReferences(), std::vector(10, pngDataURL(reference)));
    EXPECT_EQ(progress.front(), "0/11 Using reference image...");
    EXPECT_LT(std::find(generated.begin(), generated.end(), "golden_pm=img:golden_pm"),
              std::find(generated.begin(), generated.end(), "midday=img:midday"));
}

TEST_F(GeneratorTest, FailureInSecondBatchCancelsTheRest) {
    // Batch two is civil, golden_am, morning: morning fails while the other two are held.
    hook = [&](const std::string& phase, httplib::Response& r) {
        if (phase == "morning") {
            r.status = 500;
            r.set_content("model overloaded", "text/plain");
        } else if (phase == "civil" || phase == "golden_am") {
            release.wait(std::chrono::seconds(60));
            ++heldToTheEnd;
        }
    };
    EXPECT_EQ(testing::failureText<ProxyError>(
                  [&] { generator().generateTimeline("", "m", toBytes("base")); }),
              "Server error 500: model overloaded");
    EXPECT_EQ(heldToTheEnd, 0) << "the held requests were waited for";
    release.open();
    std::lock_guard lock(mutex);
    EXPECT_LE(server.seen(proxyPath).size(), 6u) << "a phase of batch three was asked for";
    EXPECT_EQ(std::count(generated.begin(), generated.end(), "civil=img:civil"), 0);
    EXPECT_EQ(progress.back().substr(0, 5), "4/11 ");
}

TEST_F(GeneratorTest, StoppingTheRunCancelsRequestsInFlight) {
    hook = [&](const std::string& phase, httplib::Response&) {
        if (phase == "nautical") {
            arrived.open();
            release.wait(std::chrono::seconds(60));
            ++heldToTheEnd;
        }
    };
    auto timeline = generator();
    std::stop_source stop;
    auto result = std::async(std::launch::async, [&] {
        return timeline.generateTimeline("", "m", toBytes("base"), stop.get_token());
    });
    ASSERT_TRUE(arrived.wait());
    stop.request_stop();
    ASSERT_EQ(result.wait_for(std::chrono::seconds(30)), std::future_status::ready);
    EXPECT_THROW(result.get(), platform::CancellationError);
    EXPECT_EQ(heldToTheEnd, 0);
    release.open();
    EXPECT_LE(server.seen(proxyPath).size(), 3u) << "batch two started";
}

TEST_F(GeneratorTest, CommandKeepsWhatWasWrittenOnFailureAndNamesImagesBySequence) {
    EXPECT_EQ(run({"--prompt", "  ", "-o", output.string()}), cli::exitUsage); // a blank prompt
    EXPECT_EQ(run({"--image", (folder.path() / "missing.png").string(), "-o", output.string()}),
              cli::exitFailure);
    EXPECT_EQ(file("original.png"), "");

    hook = [](const std::string& phase, httplib::Response& r) {
        if (phase == "civil") {
            r.status = 503;
            r.set_content("busy", "text/plain");
        }
    };
    EXPECT_EQ(run({"--prompt", "a harbour", "-o", output.string()}), cli::exitFailure);
    EXPECT_NE(err.str().find("Server error 503: busy"), std::string::npos) << err.str();
    EXPECT_EQ(file("original.png"), "img:original");
    EXPECT_EQ(file("phase_1.png"), "img:night");
    EXPECT_EQ(file("phase_7.png"), "");

    hook = nullptr;
    ASSERT_EQ(run({"--prompt", "a harbour", "-o", output.string()}), cli::exitSuccess) << err.str();
    for (std::size_t i = 0; i < lightingPhases.size(); ++i)
        EXPECT_EQ(file("phase_" + std::to_string(i + 1) + ".png"),
                  "img:" + std::string(lightingPhases[i].name));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(output), {}), 11);
    EXPECT_NE(err.str().find("[11/11] Completed 11/11 images..."), std::string::npos) << err.str();

    const auto picture = folder.path() / "photo.jpg";
    std::ofstream(picture, std::ios::binary) << "JPEGDATA";
    ASSERT_EQ(run({"--image", picture.string(), "-o", output.string()}), cli::exitSuccess);
    EXPECT_EQ(file("original.png"), "JPEGDATA"); // the base frame as given
    EXPECT_EQ(file("phase_10.png"), "img:sunset");
}

} // namespace
} // namespace lumivesper::generation
