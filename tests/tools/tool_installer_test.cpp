#include "../support/temporary_folder.h"
#include "tool_fixture.h"
#include "tools/process_runner.h"
#include "tools/tool_error.h"
#include "tools/tool_health_check.h"
#include "tools/tool_installer.h"

#include <fstream>
#include <gtest/gtest.h>
#include <regex>

namespace lumivesper::tools {
namespace {

namespace fs = std::filesystem;
using testing::upscalerArchive;
using testing::upscalerPackage;

std::vector<std::string> entriesOf(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

class ToolInstallation : public ::testing::Test {
protected:
    ToolError failureOf(const ToolPackage& package, const fs::path& archivePath) {
        try {
            installer.install(package, archivePath);
        } catch (const ToolError& error) {
            return error;
        }
        throw std::runtime_error("the installation succeeded");
    }

    std::string runInstalled() {
        return runProcess({*state.tool("upscaler")->executable, {}, {}}).standardOutput;
    }

    lumivesper::testing::TemporaryFolder folder;
    fs::path tools = folder.path() / "tools";
    fs::path archive = folder.path() / "upscaler.zip";
    ToolLogger logger{folder.path() / "tools.log"};
    ToolState state{folder.path() / "tools-state.json"};
    ToolInstaller installer{logger, state, tools};
};

TEST_F(ToolInstallation, InstallsVerifiesAndRecords) {
    upscalerArchive().write(archive);
    const ToolInfo info = installer.install(upscalerPackage(), archive);

    EXPECT_EQ(info.status, "installed");
    EXPECT_EQ(info.executable, (tools / "upscaler" / "bin" / "upscale").string());
    EXPECT_EQ(info.modelsDir, (tools / "upscaler" / "models").string());
    EXPECT_EQ(info.version, "1.0");
    EXPECT_EQ(info.availableModels, (std::vector<std::string>{"x2", "x4"}));
    ASSERT_TRUE(info.installedAt);
    EXPECT_TRUE(
        std::regex_match(*info.installedAt, std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)")));
    EXPECT_EQ(ToolState(state.stateFile()).tool("upscaler"), info);
    EXPECT_EQ(runInstalled(), "upscaled\n");
    EXPECT_EQ(entriesOf(tools), std::vector<std::string>{"upscaler"});
}

TEST_F(ToolInstallation, AReinstallReplacesTheEarlierOne) {
    upscalerArchive("old").write(archive);
    installer.install(upscalerPackage(), archive);
    upscalerArchive("new").write(archive);
    installer.install(upscalerPackage(), archive);

    EXPECT_EQ(runInstalled(), "new\n");
    EXPECT_EQ(entriesOf(tools), std::vector<std::string>{"upscaler"});
}

TEST_F(ToolInstallation, ADamagedArchiveFailsExtractionAndKeepsTheEarlierInstallation) {
    upscalerArchive("old").write(archive);
    const ToolInfo before = installer.install(upscalerPackage(), archive);
    std::ofstream(archive, std::ios::trunc) << "PK not really a zip";

    const ToolError error = failureOf(upscalerPackage(), archive);
    EXPECT_EQ(error.kind(), ToolError::Kind::extractionFailed);
    EXPECT_TRUE(error.underlyingError());
    EXPECT_EQ(state.tool("upscaler"), before);
    EXPECT_EQ(runInstalled(), "old\n");
    EXPECT_EQ(entriesOf(tools), std::vector<std::string>{"upscaler"});
}

TEST_F(ToolInstallation, AnArchiveWithoutTheProgram) {
    testing::ZipWriter zip;
    zip.add("models/x4.bin", "weights");
    zip.write(archive);
    EXPECT_EQ(failureOf(upscalerPackage(), archive).kind(), ToolError::Kind::executableNotFound);
    EXPECT_FALSE(state.tool("upscaler"));
    EXPECT_TRUE(entriesOf(tools).empty());
}

TEST_F(ToolInstallation, AProgramThatMayNotRunAndNoModelsFolder) {
    testing::ZipWriter zip;
    zip.add("bin/upscale", "#!/bin/sh\n", 0644);
    zip.write(archive);
    const ToolError error = failureOf(upscalerPackage(), archive);
    EXPECT_EQ(error.kind(), ToolError::Kind::verificationFailed);
    EXPECT_EQ(error.description(), "Installation verification failed:\n"
                                   "Not an executable file: bin/upscale\n"
                                   "Models folder missing: models");
}

TEST_F(ToolInstallation, MissingModelsAreNamed) {
    upscalerArchive().write(archive);
    ToolPackage package = upscalerPackage();
    package.requiredModels = {"x4", "x8", "x16"};
    const ToolError error = failureOf(package, archive);
    EXPECT_EQ(error.kind(), ToolError::Kind::modelsUnavailable);
    EXPECT_EQ(error.description(), "Missing required AI models: x8, x16");
    EXPECT_FALSE(state.tool("upscaler"));
}

TEST_F(ToolInstallation, RefusesWhenTheDiskIsTooFullAndUnpacksNothing) {
    upscalerArchive().write(archive);
    ToolPackage package = upscalerPackage();
    package.requiredSpace = installer.availableSpace() + 1'000'000'000'000'000;
    const ToolError error = failureOf(package, archive);
    EXPECT_EQ(error.kind(), ToolError::Kind::insufficientDiskSpace);
    EXPECT_EQ(error.required(), package.requiredSpace);
    EXPECT_LT(error.available(), error.required());
    EXPECT_EQ(error.description(),
              "Not enough disk space. Need " + std::to_string(package.requiredSpace / 1'000'000) +
                  "MB, but only " + std::to_string(error.available() / 1'000'000) +
                  "MB available.");
    EXPECT_TRUE(entriesOf(tools).empty());
}

TEST_F(ToolInstallation, MeasuresSpaceBeforeTheToolsFolderExists) {
    ToolInstaller elsewhere(logger, state, folder.path() / "not" / "yet" / "there");
    EXPECT_GT(elsewhere.availableSpace(), 0);
    EXPECT_NO_THROW(elsewhere.ensureDiskSpace(1));
}

TEST_F(ToolInstallation, RefusesPackagesThatPointOutsideTheirFolder) {
    upscalerArchive().write(archive);
    for (auto change : std::vector<void (*)(ToolPackage&)>{
             [](ToolPackage& p) { p.name = "../escape"; }, [](ToolPackage& p) { p.name = ""; },
             [](ToolPackage& p) { p.executable = "../../bin/sh"; },
             [](ToolPackage& p) { p.modelsDirectory = "/etc"; }}) {
        ToolPackage package = upscalerPackage();
        change(package);
        EXPECT_EQ(failureOf(package, archive).kind(), ToolError::Kind::installationFailed);
    }
    EXPECT_FALSE(fs::exists(tools / "upscaler"));
}

class ToolHealth : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(folder.path() / "models");
        std::ofstream(folder.path() / "models" / "x4.bin") << "weights";
        std::ofstream(program) << "#!/bin/sh\n";
        fs::permissions(program, fs::perms::owner_all);
        tool.status = "installed";
        tool.executable = program.string();
        tool.modelsDir = (folder.path() / "models").string();
    }

    std::vector<std::string> problems(const std::optional<ToolInfo>& info,
                                      std::vector<std::string> models = {"x4"}) const {
        return ToolHealthCheck().problems(info, models);
    }

    lumivesper::testing::TemporaryFolder folder;
    fs::path program = folder.path() / "upscale";
    ToolInfo tool;
};

TEST_F(ToolHealth, AnInstalledToolWithItsModelsIsHealthy) {
    EXPECT_TRUE(ToolHealthCheck().isHealthy(tool, {"x4"}));
}

TEST_F(ToolHealth, NamesEachProblem) {
    EXPECT_EQ(problems(std::nullopt), std::vector<std::string>{"Not installed"});

    ToolInfo downloading = tool;
    downloading.status = "downloading";
    EXPECT_EQ(problems(downloading), std::vector<std::string>{"Status is \"downloading\""});

    EXPECT_EQ(problems(tool, {"x4", "x2"}), std::vector<std::string>{"Model missing: x2"});

    fs::permissions(program, fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(problems(tool), std::vector<std::string>{"Not executable: " + program.string()});

    fs::remove_all(folder.path() / "models");
    fs::remove(program);
    EXPECT_EQ(problems(tool),
              (std::vector<std::string>{"Executable missing: " + program.string(),
                                        "Models folder missing: " + *tool.modelsDir}));
}

} // namespace
} // namespace lumivesper::tools
