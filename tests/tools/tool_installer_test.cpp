#include "../support/temporary_folder.h"
#include "loopback_server.h"
#include "tool_fixture.h"
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

// Installs from a local archive, or prepares through a loopback server serving that archive.
class ToolInstallation : public ::testing::Test {
protected:
    void SetUp() override {
        testing::upscalerArchive().write(archive);
        server.server.Get("/upscaler.zip", [this](const httplib::Request&, httplib::Response& r) {
            ++downloads;
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

    lumivesper::testing::TemporaryFolder folder;
    fs::path tools = folder.path() / "tools";
    fs::path archive = folder.path() / "upscaler.zip";
    ToolPackage package = testing::upscalerPackage();
    ToolCoordinator coordinator{tools, folder.path() / "tools-state.json",
                                folder.path() / "tools.log"};
    ToolState& state = coordinator.state();
    std::atomic<int> downloads = 0;
    testing::LoopbackServer server;
};

TEST_F(ToolInstallation, PreparesOnceAndReinstallsADamagedInstallation) {
    std::vector<double> fractions;
    const ToolInfo info = coordinator.prepare(package, [&](double f) { fractions.push_back(f); });
    EXPECT_EQ(info.status, "installed");
    EXPECT_EQ(info.executable, (tools / "upscaler" / "bin" / "upscale").string());
    EXPECT_EQ(info.modelsDir, (tools / "upscaler" / "models").string());
    EXPECT_EQ(info.version, "1.0");
    EXPECT_EQ(info.availableModels, (Names{"x2", "x4"}));
    EXPECT_TRUE(std::regex_match(info.installedAt.value_or(""),
                                 std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)")));
    EXPECT_EQ(ToolState(state.stateFile()).tool("upscaler"), info);
    EXPECT_EQ(runInstalled(), "upscaled\n");
    EXPECT_DOUBLE_EQ(fractions.empty() ? 0.0 : fractions.back(), 1.0);
    EXPECT_EQ(coordinator.readyTool(package), state.tool("upscaler"));
    EXPECT_EQ(coordinator.prepare(package).installedAt, info.installedAt);
    EXPECT_EQ(downloads, 1);

    fs::remove(*info.executable);
    EXPECT_FALSE(coordinator.readyTool(package));
    coordinator.prepare(package);
    EXPECT_EQ(downloads, 2);
    EXPECT_TRUE(fs::exists(*info.executable));
    EXPECT_NE(readFile(folder.path() / "tools.log").find("Executable missing"), std::string::npos);
}

TEST_F(ToolInstallation, AReinstallReplacesAndADamagedArchiveKeepsTheEarlierOne) {
    coordinator.installer().install(package, archive);
    testing::upscalerArchive("new").write(archive);
    const ToolInfo before = coordinator.installer().install(package, archive);
    EXPECT_EQ(runInstalled(), "new\n");

    std::ofstream(archive, std::ios::trunc) << "PK not really a zip";
    const ToolError error = failureOf();
    EXPECT_EQ(error.kind(), ToolError::Kind::extractionFailed);
    EXPECT_TRUE(error.underlyingError());
    EXPECT_EQ(state.tool("upscaler"), before);
    EXPECT_EQ(runInstalled(), "new\n");
    EXPECT_EQ(std::distance(fs::directory_iterator(tools), fs::directory_iterator()), 1)
        << "nothing but the installed tool";
}

TEST_F(ToolInstallation, VerifiesTheProgramAndTheModels) {
    package.requiredModels = {"x4", "x8", "x16"};
    EXPECT_EQ(failureOf().description(), "Missing required AI models: x8, x16");
    package.requiredModels = {"x4"};

    testing::ZipWriter zip;
    zip.add("bin/upscale", "#!/bin/sh\n", 0644);
    zip.write(archive);
    EXPECT_EQ(failureOf().description(), "Installation verification failed:\n"
                                         "Not an executable file: bin/upscale\n"
                                         "Models folder missing: models");
    testing::ZipWriter noProgram;
    noProgram.add("models/x4.bin", "weights");
    noProgram.write(archive);
    EXPECT_EQ(failureOf().kind(), ToolError::Kind::executableNotFound);
    EXPECT_FALSE(state.tool("upscaler"));
    EXPECT_TRUE(fs::is_empty(tools));
}

TEST_F(ToolInstallation, RefusesPackagesThatPointOutsideTheirFolder) {
    for (auto change : std::vector<void (*)(ToolPackage&)>{
             [](ToolPackage& p) { p.name = "../escape"; }, [](ToolPackage& p) { p.name = ""; },
             [](ToolPackage& p) { p.executable = "../../bin/sh"; },
             [](ToolPackage& p) { p.modelsDirectory = "/etc"; }}) {
        package = testing::upscalerPackage();
        change(package);
        EXPECT_EQ(failureOf().kind(), ToolError::Kind::installationFailed);
    }
    EXPECT_FALSE(fs::exists(tools / "upscaler"));
}

TEST_F(ToolInstallation, RefusesAFullDiskBeforeDownloadingOrUnpackingAndAnUnreachableServer) {
    package.requiredSpace = coordinator.installer().availableSpace() + 1'000'000'000'000'000;
    EXPECT_EQ(failureOf().kind(), ToolError::Kind::insufficientDiskSpace);
    EXPECT_FALSE(fs::exists(tools / "upscaler"));
    EXPECT_EQ(failureOf([&] { coordinator.prepare(package); }).required(), package.requiredSpace);
    EXPECT_EQ(downloads, 0);
    ToolInstaller elsewhere(coordinator.logger(), state, folder.path() / "not" / "yet" / "there");
    EXPECT_NO_THROW(elsewhere.ensureDiskSpace(1)); // measured before the folder exists

    package = testing::upscalerPackage();
    package.archiveURL = testing::refusingURL("/upscaler.zip");
    EXPECT_EQ(failureOf([&] { coordinator.prepare(package); }).kind(),
              ToolError::Kind::networkUnavailable);
}

TEST(ToolHealth, NamesEachProblem) {
    lumivesper::testing::TemporaryFolder folder;
    const fs::path program = folder.path() / "upscale";
    const fs::path models = folder.path() / "models";
    fs::create_directories(models);
    std::ofstream(models / "x4.bin") << "weights";
    std::ofstream(program) << "#!/bin/sh\n";
    fs::permissions(program, fs::perms::owner_all);
    ToolInfo tool = testing::toolInfo("installed", program, models);
    const auto problems = [&](Names required = {"x4"}) {
        return ToolHealthCheck().problems(tool, required);
    };

    EXPECT_EQ(problems(), Names{});
    EXPECT_EQ(problems({"x4", "x2"}), Names{"Model missing: x2"});
    EXPECT_EQ(ToolHealthCheck().problems(std::nullopt, {}), Names{"Not installed"});
    tool.status = "downloading";
    EXPECT_EQ(problems(), Names{"Status is \"downloading\""});
    tool.status = "installed";
    fs::permissions(program, fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(problems(), Names{"Not executable: " + program.string()});
    fs::remove_all(models);
    fs::remove(program);
    EXPECT_EQ(problems(), (Names{"Executable missing: " + program.string(),
                                 "Models folder missing: " + models.string()}));
}

} // namespace
} // namespace lumivesper::tools
