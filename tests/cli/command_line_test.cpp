#include "../support/temporary_folder.h"
#include "document/json_coding.h"
#include "document/project.h"
#include "platform/image_io.h"

#include <fstream>
#include <gmock/gmock.h>
#include <sys/wait.h>

namespace lumivesper::cli {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

struct ProgramRun {
    bool exited = false; // false when a signal ended it (an escaped exception aborts)
    int exitCode = -1;
    std::string out;
    std::string err;
};

std::string quoted(const std::string& text) {
    std::string result = "'";
    for (char c : text)
        result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return result + "'";
}

std::string readText(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// The installed program itself, as a user runs it: its own process, its own standard streams.
class CommandLineTest : public ::testing::Test {
protected:
    ProgramRun run(const std::vector<std::string>& arguments,
                   const std::string& temporaryFolder = "") {
        std::string command = "cd " + quoted(folder.path().string()) + " && env TMPDIR=" +
                              quoted(temporaryFolder.empty() ? (folder.path() / "tmp").string()
                                                             : temporaryFolder) +
                              " XDG_DATA_HOME=" + quoted((folder.path() / "data").string()) + " " +
                              quoted(LUMIVESPER_CLI_PATH);
        for (const auto& argument : arguments)
            command += " " + quoted(argument);
        command += " >" + quoted((folder.path() / "out.txt").string()) + " 2>" +
                   quoted((folder.path() / "err.txt").string());
        const int status = std::system(command.c_str());
        ProgramRun result;
        result.exited = WIFEXITED(status);
        result.exitCode = result.exited ? WEXITSTATUS(status) : -1;
        result.out = readText(folder.path() / "out.txt");
        result.err = readText(folder.path() / "err.txt");
        return result;
    }

    std::string png(const fs::path& path) {
        fs::create_directories(path.parent_path());
        platform::writePng(platform::PixelImage(16, 8), path);
        return path.string();
    }

    void SetUp() override { fs::create_directories(folder.path() / "tmp"); }

    testing::TemporaryFolder folder;
    std::string output = (folder.path() / "out.heic").string();
};

TEST_F(CommandLineTest, StandardOutputCarriesOnlyTheResultAndDiagnosticsNeedVerbose) {
    const std::vector<std::string> images = {png(folder.path() / "a.png") + "@10,90",
                                             png(folder.path() / "b.png") + "@40,180"};
    for (const bool verbose : {false, true}) {
        SCOPED_TRACE(verbose);
        std::vector<std::string> arguments = {"export", images[0], images[1], "-o", output};
        if (verbose)
            arguments.insert(arguments.begin(), "--verbose");
        const ProgramRun result = run(arguments);
        ASSERT_EQ(result.exitCode, 0) << result.err;
        EXPECT_EQ(result.out, "Wrote " + output + " (time mode)\n");
        EXPECT_THAT(result.err, HasSubstr("] Encoded image 2/2"));
        if (verbose)
            EXPECT_THAT(result.err, HasSubstr("Generating time wallpaper with 2 images"));
        else
            EXPECT_THAT(result.err, Not(HasSubstr("Generating")));
    }
}

TEST_F(CommandLineTest, AnUnexpectedFailureEndsWithAMessageNotAnAbort) {
    // The temporary folder does not exist: preparing the frames fails before any work.
    const ProgramRun result = run({"export", png(folder.path() / "a.png"), "-o", output,
                                   "--dither"},
                                  (folder.path() / "absent").string());
    EXPECT_TRUE(result.exited) << "ended by a signal";
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.err, HasSubstr("lumivesper-cli"));
    EXPECT_TRUE(result.out.empty());
}

TEST_F(CommandLineTest, APackageExportsInTheSpellingsAShellGives) {
    document::Project project;
    for (const char* name : {"dawn.png", "noon.png"}) {
        png(folder.path() / "Trip.lvesper" / "images" / name);
        document::WallpaperImage image;
        image.fileName = name;
        image.altitude = project.images.empty() ? 5.0 : 60.0;
        image.azimuth = 180.0;
        project.images.push_back(image);
    }
    std::ofstream(folder.path() / "Trip.lvesper" / "project.json")
        << nlohmann::json(project).dump();
    for (const std::string spelling :
         {"Trip.lvesper/", "./Trip.lvesper", "sub/../Trip.lvesper//"}) {
        fs::remove(output);
        const ProgramRun result = run({"export", spelling, "-o", output});
        EXPECT_EQ(result.exitCode, 0) << spelling << ": " << result.err;
        EXPECT_TRUE(fs::exists(output)) << spelling;
    }
}

} // namespace
} // namespace lumivesper::cli
