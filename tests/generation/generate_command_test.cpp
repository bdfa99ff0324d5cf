#include "../support/temporary_folder.h"
#include "cli/command.h"
#include "generation/phase_descriptor.h"
#include "generation/request_text.h"
#include "loopback_server.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>

namespace lumivesper::generation {
namespace {

using testing::LoopbackServer;
using testing::ScopedEnvironment;

// The command against a stand-in for our server that relights into "img:<phase>" and can be told
// to fail one phase.
class GenerateCommandTest : public ::testing::Test {
protected:
    GenerateCommandTest() {
        server.server.Post("/api/token", [](const httplib::Request&, httplib::Response& r) {
            r.set_content(R"({"token":"T","expiresIn":3600})", "application/json");
        });
        server.server.Get("/api/prompts", [](const httplib::Request&, httplib::Response& r) {
            r.set_content(R"({"version":"t","updated":"","templates":{"original":"O {userPrompt}",
                "relight":"R {phaseDescription}"}})",
                          "application/json");
        });
        server.server.Post("/api/proxy/chat/completions", [this](const httplib::Request& request,
                                                                 httplib::Response& r) {
            const auto content = nlohmann::json::parse(request.body)["messages"][0]["content"];
            std::string phase = "original";
            if (content.is_array())
                for (const auto& descriptor : lightingPhases)
                    if (content[0]["text"] == "R " + std::string(descriptor.timeOfDay) + ". " +
                                                  std::string(descriptor.description))
                        phase = descriptor.name;
            if (phase == failingPhase) {
                r.status = 503;
                return r.set_content("busy", "text/plain");
            }
            r.set_content(R"({"choices":[{"message":{"images":[{"b64_json":")" +
                              encodeBase64(toBytes("img:" + phase)) + R"("}]}}]})",
                          "application/json");
        });
        server.start();
    }

    int run(std::vector<std::string> arguments) {
        ScopedEnvironment serverURL("API_SERVER_URL", server.url());
        ScopedEnvironment config("LUMIVESPER_CONFIG_DIR", (folder.path() / "config").string());
        out.str("");
        err.str("");
        ::testing::internal::CaptureStdout(); // the generator's own log lines
        const int code = cli::runGenerate({std::move(arguments), out, err});
        ::testing::internal::GetCapturedStdout();
        return code;
    }
    std::optional<std::string> file(const std::string& name) const {
        std::ifstream stream(output() / name, std::ios::binary);
        if (!stream)
            return std::nullopt;
        std::ostringstream text;
        text << stream.rdbuf();
        return text.str();
    }
    std::filesystem::path output() const { return folder.path() / "out" / "day"; }

    lumivesper::testing::TemporaryFolder folder;
    std::ostringstream out;
    std::ostringstream err;
    std::string failingPhase;
    LoopbackServer server; // last: stopped first
};

TEST_F(GenerateCommandTest, WritesElevenImagesNamedBySequence) {
    ASSERT_EQ(run({"--prompt", "a harbour", "-o", output().string()}), cli::exitSuccess)
        << err.str();
    EXPECT_EQ(file("original.png"), "img:original");
    for (std::size_t i = 0; i < lightingPhases.size(); ++i)
        EXPECT_EQ(file("phase_" + std::to_string(i + 1) + ".png"),
                  "img:" + std::string(lightingPhases[i].name));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(output()), {}), 11);
    EXPECT_NE(err.str().find("[11/11] Completed 11/11 images..."), std::string::npos) << err.str();
}

TEST_F(GenerateCommandTest, ImageIsTheBaseFrameAsGiven) {
    const auto picture = folder.path() / "photo.jpg";
    std::ofstream(picture, std::ios::binary) << "JPEGDATA";
    ASSERT_EQ(run({"--image", picture.string(), "-o", output().string()}), cli::exitSuccess);
    EXPECT_EQ(file("original.png"), "JPEGDATA");
    EXPECT_EQ(file("phase_1.png"), "img:night");
    EXPECT_EQ(file("phase_10.png"), "img:sunset");
}

TEST_F(GenerateCommandTest, FailureKeepsWhatWasWritten) {
    failingPhase = "civil";
    EXPECT_EQ(run({"--prompt", "a harbour", "-o", output().string()}), cli::exitFailure);
    EXPECT_NE(err.str().find("Server error 503: busy"), std::string::npos) << err.str();
    EXPECT_EQ(file("original.png"), "img:original");
    EXPECT_EQ(file("phase_1.png"), "img:night");
    EXPECT_FALSE(file("phase_7.png"));
}

TEST_F(GenerateCommandTest, BadUsage) {
    EXPECT_EQ(run({"--prompt", "x"}), cli::exitUsage);
    EXPECT_EQ(run({"-o", output().string()}), cli::exitUsage);
    EXPECT_EQ(run({"--prompt", "  ", "-o", output().string()}), cli::exitUsage);
    EXPECT_EQ(run({"--colour", "red"}), cli::exitUsage);
    EXPECT_EQ(run({"--image", (folder.path() / "missing.png").string(), "-o", output().string()}),
              cli::exitFailure);
    EXPECT_FALSE(std::filesystem::exists(output() / "original.png"));
}

} // namespace
} // namespace lumivesper::generation
