#include "../support/temporary_folder.h"
#include "platform/cancellation.h"
#include "tool_fixture.h"
#include "tools/download_delegate.h"
#include "tools/process_runner.h"
#include "tools/tool_coordinator.h"
#include "tools/tool_error.h"

#include <atomic>
#include <gtest/gtest.h>
#include <regex>

namespace lumivesper::tools {
namespace {

namespace fs = std::filesystem;
using testing::readFile;
using Names = std::vector<std::string>;

TEST(DownloadDelegateAnswers, ExactlyOnceWhicheverEventComesFirst) {
    lumivesper::testing::TemporaryFolder folder;
    const fs::path partial = folder.path() / "transfer.part";
    const platform::HttpResponse ok{200, {}, {}};

    std::ofstream(partial) << "archive bytes";
    DownloadDelegate finishFirst({}, folder.path());
    std::stop_source task;
    auto finished = finishFirst.start(task);
    finishFirst.didCompleteWithError(nullptr); // ended well: the finish gives the answer
    finishFirst.didFinishDownloading(partial, ok);
    finishFirst.didCompleteWithError(std::make_exception_ptr(std::runtime_error("late")));
    finishFirst.didFinishDownloading(partial, ok);
    EXPECT_EQ(readFile(finished.get().location), "archive bytes");
    EXPECT_TRUE(task.stop_requested()) << "the transfer is torn down once answered";

    std::ofstream(partial) << "archive bytes";
    DownloadDelegate errorFirst({}, folder.path());
    auto failed = errorFirst.start(std::stop_source());
    errorFirst.didCompleteWithError(std::make_exception_ptr(std::runtime_error("first")));
    errorFirst.didFinishDownloading(partial, ok);
    EXPECT_THROW(failed.get(), std::runtime_error);
    EXPECT_TRUE(fs::exists(partial)) << "the late finish must not move anything";

    DownloadDelegate noResponse({}, folder.path());
    auto unanswered = noResponse.start(std::stop_source());
    noResponse.didFinishDownloading(partial, std::nullopt);
    EXPECT_THROW(unanswered.get(), platform::HttpError);

    DownloadDelegate nowhere({}, folder.path() / "no-such-folder");
    auto unmoved = nowhere.start(std::stop_source());
    nowhere.didFinishDownloading(partial, ok);
    EXPECT_THROW(unmoved.get(), fs::filesystem_error);
}

// Downloads and installations from a loopback server and local archives.
class ToolInstallation : public ::testing::Test {
protected:
    void SetUp() override {
        for (std::size_t index = 0; index < body.size(); ++index)
            body[index] = static_cast<char>('a' + index % 26); // misplaced bytes show
        testing::writeUpscalerArchive(archive);
        fs::create_directories(finished);
        server.server.Get("/known", [this](const httplib::Request&, httplib::Response& r) {
            r.set_content(body, "application/zip");
        });
        server.server.Get("/unknown", [this](const httplib::Request&, httplib::Response& r) {
            r.set_chunked_content_provider("application/zip", [this](size_t, auto& sink) {
                sink.write(body.data(), body.size());
                sink.done();
                return true;
            });
        });
        server.server.Get("/upscaler.zip", [this](const httplib::Request&, httplib::Response& r) {
            ++served;
            r.set_content(readFile(archive), "application/zip");
        });
        server.start();
        package.archiveURL = server.url("/upscaler.zip");
    }

    ToolError failureOf(const std::function<void()>& work = {}) {
        return testing::failureOf<ToolError>(
            work ? work : [&] { coordinator.installer().install(package, archive); });
    }

    std::string runInstalled() {
        return runProcess({*state.tool("upscaler")->executable, {}, {}}).standardOutput;
    }

    std::string body = std::string(600'000, ' ');
    lumivesper::testing::TemporaryFolder folder;
    fs::path downloads = folder.path() / "downloads";
    fs::path finished = folder.path() / "finished";
    ToolDownloader downloader{downloads, finished};
    fs::path tools = folder.path() / "tools";
    fs::path archive = folder.path() / "upscaler.zip";
    ToolPackage package = testing::upscalerPackage();
    ToolCoordinator coordinator{tools, folder.path() / "tools-state.json",
                                folder.path() / "tools.log"};
    ToolState& state = coordinator.state();
    std::atomic<int> served = 0;
    testing::LoopbackServer server;
};

TEST_F(ToolInstallation, DeliversTheBodyWithFractionsOnlyForAKnownLength) {
    for (const std::string path : {"/known", "/unknown"}) {
        std::vector<double> fractions;
        const DownloadOutcome outcome =
            downloader.download(server.url(path), [&](double f) { fractions.push_back(f); });
        EXPECT_EQ(outcome.response.status, 200);
        EXPECT_EQ(outcome.response.header("Transfer-Encoding") == "chunked", path == "/unknown");
        EXPECT_TRUE(std::regex_match(outcome.location.filename().string(),
                                     std::regex("LumivesperDownload-[0-9A-F]{8}-[0-9A-F]{4}-"
                                                "[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}\\.zip")))
            << outcome.location;
        EXPECT_EQ(readFile(outcome.location), body);
        EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));
        if (path == "/known") {
            ASSERT_FALSE(fractions.empty());
            EXPECT_GT(fractions.front(), 0.0);
            EXPECT_DOUBLE_EQ(fractions.back(), 1.0);
        } else {
            EXPECT_TRUE(fractions.empty());
        }
    }
    EXPECT_TRUE(fs::is_empty(downloads)) << "nothing of the transfers is left behind";
}

TEST_F(ToolInstallation, AFailureGivesItsStatusOrCauseAndKeepsNoFile) {
    const ToolError notFound = failureOf([&] { downloader.download(server.url("/missing")); });
    EXPECT_EQ(notFound.kind(), ToolError::Kind::downloadFailed);
    EXPECT_EQ(notFound.statusCode(), 404);
    EXPECT_EQ(notFound.description(),
              "Download failed (HTTP 404). Check your internet connection.");
    EXPECT_EQ(notFound.recoverySuggestion(), "Check your internet connection and retry.");

    const ToolError refused = failureOf([&] { downloader.download(testing::refusingURL("/")); });
    EXPECT_FALSE(refused.statusCode());
    EXPECT_EQ(refused.description(), "Download failed. Check your internet connection.");
    ASSERT_TRUE(refused.underlyingError());
    const auto cause = testing::failureOf<platform::HttpError>(
        [&] { std::rethrow_exception(refused.underlyingError()); });
    EXPECT_EQ(cause.kind(), platform::HttpError::Kind::cannotConnect);

    EXPECT_TRUE(fs::is_empty(downloads));
    EXPECT_TRUE(fs::is_empty(finished));
}

TEST_F(ToolInstallation, ACancelledDownloadIsACancellation) {
    std::stop_source stop;
    EXPECT_THROW(downloader.download(
                     server.url("/known"), [&](double) { stop.request_stop(); }, stop.get_token()),
                 platform::CancellationError);
    EXPECT_TRUE(fs::is_empty(downloads));
}

TEST_F(ToolInstallation, PreparesOnceAndReinstallsADamagedInstallation) {
    std::vector<double> fractions;
    const ToolInfo info = coordinator.prepare(package, [&](double f) { fractions.push_back(f); });
    EXPECT_EQ(info.executable, (tools / "upscaler" / "bin" / "upscale").string());
    EXPECT_EQ(info.modelsDir, (tools / "upscaler" / "models").string());
    EXPECT_EQ(info.availableModels, (Names{"x2", "x4"}));
    EXPECT_TRUE(std::regex_match(info.installedAt.value_or(""),
                                 std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)")));
    EXPECT_EQ(ToolState(state.stateFile()).tool("upscaler"), info);
    EXPECT_EQ(runInstalled(), "upscaled\n");
    EXPECT_DOUBLE_EQ(fractions.empty() ? 0.0 : fractions.back(), 1.0);
    EXPECT_EQ(coordinator.readyTool(package), state.tool("upscaler"));
    EXPECT_EQ(coordinator.prepare(package).installedAt, info.installedAt);
    EXPECT_EQ(served, 1);

    fs::remove(*info.executable);
    EXPECT_FALSE(coordinator.readyTool(package));
    coordinator.prepare(package);
    EXPECT_EQ(served, 2);
    EXPECT_TRUE(fs::exists(*info.executable));
    EXPECT_NE(readFile(folder.path() / "tools.log").find("Executable missing"), std::string::npos);
}

TEST_F(ToolInstallation, AReinstallReplacesAndADamagedArchiveKeepsTheEarlierOne) {
    coordinator.installer().install(package, archive);
    testing::writeUpscalerArchive(archive, "new");
    const ToolInfo before = coordinator.installer().install(package, archive);
    EXPECT_EQ(runInstalled(), "new\n");

    std::ofstream(archive, std::ios::trunc) << "PK not really a zip";
    const ToolError error = failureOf();
    EXPECT_EQ(error.description(), "Failed to extract AI tools. Archive may be corrupted.");
    EXPECT_EQ(error.recoverySuggestion(), "Delete the installation folder and try again.");
    EXPECT_TRUE(error.underlyingError());
    EXPECT_EQ(state.tool("upscaler"), before);
    EXPECT_EQ(runInstalled(), "new\n");
    EXPECT_EQ(std::distance(fs::directory_iterator(tools), fs::directory_iterator()), 1)
        << "nothing but the installed tool";
}

TEST_F(ToolInstallation, VerifiesTheProgramAndTheModels) {
    package.requiredModels = {"x4", "x8", "x16"};
    const ToolError missing = failureOf();
    EXPECT_EQ(missing.description(), "Missing required AI models: x8, x16");
    EXPECT_EQ(missing.recoverySuggestion(), "Required model files are missing. Try reinstalling.");
    package.requiredModels = {"x4"};

    testing::writeZip(archive, {{"bin/upscale", "#!/bin/sh\n"}});
    const ToolError notRunnable = failureOf();
    EXPECT_EQ(notRunnable.recoverySuggestion(), "Delete the installation folder and try again.");
    EXPECT_EQ(notRunnable.description(), "Installation verification failed:\n"
                                         "Not an executable file: bin/upscale\n"
                                         "Models folder missing: models");
    testing::writeZip(archive, {{"models/x4.bin", "weights"}});
    EXPECT_EQ(failureOf().kind(), ToolError::Kind::executableNotFound);
    EXPECT_FALSE(state.tool("upscaler"));
    EXPECT_TRUE(fs::is_empty(tools));
}

TEST_F(ToolInstallation, RefusesAFullDiskBeforeDownloadingOrUnpackingAndAnUnreachableServer) {
    package.requiredSpace = coordinator.installer().availableSpace() + 1'000'000'000'000'000;
    EXPECT_EQ(failureOf().kind(), ToolError::Kind::insufficientDiskSpace);
    EXPECT_FALSE(fs::exists(tools / "upscaler"));
    EXPECT_EQ(failureOf([&] { coordinator.prepare(package); }).required(), package.requiredSpace);
    EXPECT_EQ(served, 0);
    ToolInstaller elsewhere(coordinator.logger(), state, folder.path() / "not" / "yet" / "there");
    EXPECT_NO_THROW(elsewhere.ensureDiskSpace(1)); // measured before the folder exists

    package = testing::upscalerPackage();
    package.archiveURL = testing::refusingURL("/upscaler.zip");
    EXPECT_EQ(failureOf([&] { coordinator.prepare(package); }).kind(),
              ToolError::Kind::networkUnavailable);
}

TEST_F(ToolInstallation, HealthNamesEachProblem) {
    ToolInfo tool = coordinator.installer().install(package, archive);
    const ToolHealthCheck check;
    EXPECT_EQ(check.problems(tool, {"x4"}), Names{});
    EXPECT_EQ(check.problems(tool, {"x4", "x8"}), Names{"Model missing: x8"});
    EXPECT_EQ(check.problems(std::nullopt, {}), Names{"Not installed"});
    tool.status = "downloading";
    EXPECT_EQ(check.problems(tool, {}), Names{"Status is \"downloading\""});
    tool.status = "installed";
    fs::permissions(*tool.executable, fs::perms::owner_read);
    EXPECT_EQ(check.problems(tool, {}), Names{"Not executable: " + *tool.executable});
    fs::remove_all(tools / "upscaler");
    EXPECT_EQ(check.problems(tool, {}), (Names{"Executable missing: " + *tool.executable,
                                               "Models folder missing: " + *tool.modelsDir}));
}

} // namespace
} // namespace lumivesper::tools
