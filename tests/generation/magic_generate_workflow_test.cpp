#include "../support/program_server_stand_in.h"
#include "../support/temporary_folder.h"
#include "cli/command.h"
#include "document/project_io.h"
#include "generation/image_generation_error.h"
#include "generation/magic_generate_progress.h"
#include "generation/magic_generate_workflow.h"
#include "generation/phase_descriptor.h"
#include "generation/request_text.h"
#include "loopback_server.h"
#include "platform/cancellation.h"
#include "platform/image_io.h"
#include "settings/defaults.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>

namespace lumivesper::generation {
namespace {

namespace fs = std::filesystem;
using document::WallpaperImage;

constexpr const char* proxyPath = "/api/proxy/chat/completions";

std::string fileText(const fs::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

// A small PNG of one grey level, so that every phase is a different, decodable picture.
Bytes solidPng(const fs::path& folder, int level) {
    platform::PixelImage image(8, 6);
    for (std::size_t i = 0; i < image.rgba.size(); ++i)
        image.rgba[i] = i % 4 == 3 ? 255 : static_cast<std::uint8_t>(level);
    const fs::path path = folder / ("level" + std::to_string(level) + ".png");
    platform::writePng(image, path);
    return toBytes(fileText(path));
}

// The phase a proxy request relights ("original" for the text-only base frame).
std::string phaseOf(const testing::SeenRequest& seen) {
    return lumivesper::testing::requestedPhase(seen.body);
}

// Never used by the proxy route; the direct route's stand-in is further below.
class UnconfiguredService final : public ImageGenerationService {
public:
    bool isConfigured() const override { return false; }
    GeneratedImage generateImage(const std::string&, const std::string&, const std::string&,
                                 const std::optional<Bytes>&, const std::optional<std::string>&,
                                 const std::optional<std::string>&,
                                 std::stop_token) const override {
        throw std::logic_error("the proxy route called the direct service");
    }
};

class MagicGenerateTest : public ::testing::Test {
protected:
    MagicGenerateTest() {
        for (int i = 0; i <= 10; ++i)
            pictures.push_back(solidPng(folder.path(), 20 * i + 5));
        server.respond([this](const testing::SeenRequest& seen, httplib::Response& r) {
            if (seen.path == "/api/token")
                return testing::replyJson(r, R"({"token":"T","expiresIn":3600})");
            if (seen.path == "/api/prompts")
                return testing::replyJson(r, R"({"version":"t","updated":"","templates":{
                    "original":"ORIGINAL {userPrompt}","relight":"RELIGHT {phaseDescription}"}})");
            const std::string phase = phaseOf(seen);
            if (hook && hook(phase, r))
                return;
            std::size_t index = 0;
            for (std::size_t i = 0; i < lightingPhases.size(); ++i)
                if (lightingPhases[i].name == phase)
                    index = i + 1;
            testing::replyJson(r, R"({"choices":[{"message":{"images":[{"image_url":{"url":")" +
                                      pngDataURL(pictures[index]) + R"("}}]}}]})");
        });
        appState.setUndoManager(&undoManager);
        workflow.temporaryRoot = folder.path() / "tmp";
        workflow.directRouteFolder = folder.path() / "direct";
    }
    ~MagicGenerateTest() override { release.open(); }

    bool runUntil(GenerationOutcome outcome) {
        return mainThread.runUntil([&] { return workflow.state().outcome == outcome; });
    }
    const WallpaperImage* named(const std::string& fileName) const {
        for (const auto& image : appState.images())
            if (image.fileName == fileName)
                return &image;
        return nullptr;
    }
    std::size_t tweens() const {
        return static_cast<std::size_t>(std::count_if(appState.images().begin(),
                                                      appState.images().end(),
                                                      [](const auto& i) { return i.isTween; }));
    }
    void startWithOneImage() { // an old document, its addition undoable
        WallpaperImage old;
        old.fileName = "old.png";
        appState.addImage(old);
        oldId = old.id;
    }

    lumivesper::testing::TemporaryFolder folder;
    std::vector<Bytes> pictures; // the base frame, then the ten relit phases
    settings::Defaults defaults{folder.path() / "defaults.json"};
    document::UndoManager undoManager;
    document::AppState appState;
    platform::QueuedMainThread mainThread;
    UnconfiguredService unconfigured;
    int closed = 0;
    testing::Gate release;
    std::atomic<bool> held{false};
    std::atomic<int> answeredAfterHold{0};
    // Answers a request itself when it returns true.
    std::function<bool(const std::string& phase, httplib::Response&)> hook;
    testing::RecordingServer server;
    testing::ScopedEnvironment serverURL{"API_SERVER_URL", server.url()};
    MagicGenerateWorkflow workflow{appState, unconfigured, mainThread, defaults,
                                   [this] { ++closed; }};
    platform::Uuid oldId;
};

TEST_F(MagicGenerateTest, FullRunPlacesKeysByPositionAddsWrappedTweensAndUndoesAsOneStep) {
    startWithOneImage();
    workflow.setPrompt("  a lake at dawn ");
    workflow.setSmoothness(SmoothnessPreset::natural);
    ASSERT_TRUE(workflow.canGenerate());
    workflow.startGeneration();
    EXPECT_TRUE(appState.images().empty()) << "the old document goes at the start";
    EXPECT_FALSE(workflow.canGenerate()) << "while generating";
    ASSERT_TRUE(runUntil(GenerationOutcome::succeeded)) << workflow.state().progressMessage;
    mainThread.drain();

    EXPECT_EQ(server.seen(proxyPath).size(), 11u);
    ASSERT_EQ(appState.images().size(), 44u);
    EXPECT_EQ(tweens(), 33u);
    EXPECT_EQ(closed, 1);
    EXPECT_FALSE(workflow.state().isGenerating);
    EXPECT_EQ(appState.lastMagicPrompt(), "a lake at dawn");
    EXPECT_EQ(appState.lastMagicTweenCount(), 3);
    EXPECT_FALSE(appState.currentProjectPath());
    for (const auto& [id, status] : workflow.state().phaseStatus)
        EXPECT_EQ(status, PhaseStatus::completed) << id;

    // Position pairs: image i sits at row i of the phase table.
    const std::map<std::string, std::pair<double, double>> expected{{"original.png", {-30, 0}},
                                                                    {"phase_1.png", {-15, 90}},
                                                                    {"phase_6.png", {60, 180}},
                                                                    {"phase_9.png", {-0.8, 270}},
                                                                    {"phase_10.png", {-3, 270}}};
    for (const auto& [name, position] : expected) {
        const WallpaperImage* image = named(name);
        ASSERT_NE(image, nullptr) << name;
        EXPECT_FALSE(image->isTween);
        EXPECT_EQ(image->altitude, position.first) << name;
        EXPECT_EQ(image->azimuth, position.second) << name;
        ASSERT_TRUE(image->sourcePath);
        EXPECT_EQ(image->sourcePath->parent_path().parent_path().filename(), "LumivesperGenerated");
        EXPECT_TRUE(image->thumbnail);
    }
    EXPECT_EQ(toBytes(fileText(*named("phase_10.png")->sourcePath)), pictures[10]);

    // The last run wraps from "phase_10.png" (-3, 270) to "original.png" (-30, 0): altitude
    // straight, azimuth the short way through north.
    std::vector<const WallpaperImage*> wrapped;
    for (const auto& image : appState.images())
        if (image.parentId == named("phase_10.png")->id)
            wrapped.push_back(&image);
    ASSERT_EQ(wrapped.size(), 3u);
    std::vector<double> altitudes, azimuths;
    for (const auto* tween : wrapped) {
        altitudes.push_back(*tween->altitude);
        azimuths.push_back(*tween->azimuth);
    }
    std::sort(altitudes.begin(), altitudes.end(), std::greater<>());
    std::sort(azimuths.begin(), azimuths.end());
    EXPECT_EQ(altitudes, (std::vector<double>{-9.75, -16.5, -23.25}));
    EXPECT_EQ(azimuths, (std::vector<double>{292.5, 315, 337.5}));
    ASSERT_TRUE(wrapped[0]->sourcePath);
    EXPECT_EQ(wrapped[0]->fileName.rfind("phase_10_png_tween_", 0), 0u) << wrapped[0]->fileName;
    const auto blended = platform::loadImage(*wrapped[0]->sourcePath);
    EXPECT_GT(blended.rgba[0], 5);   // between original.png's grey
    EXPECT_LT(blended.rgba[0], 205); // and phase_10.png's

    // One step takes back keys and tweens together.
    ASSERT_TRUE(undoManager.canUndo());
    undoManager.undo();
    ASSERT_EQ(appState.images().size(), 1u);
    EXPECT_EQ(appState.images()[0].id, oldId);
}

TEST_F(MagicGenerateTest, EmptyPromptWithStartingImageRelightsItTenTimes) {
    const fs::path photo = folder.path() / "photo.png";
    std::ofstream(photo, std::ios::binary) << toText(pictures[3]);
    EXPECT_FALSE(workflow.setStartingImage(folder.path() / "missing.png"));
    EXPECT_EQ(workflow.state().errorMessage, "Failed to load starting image.");
    ASSERT_TRUE(workflow.setStartingImage(photo));
    EXPECT_FALSE(workflow.state().errorMessage);
    workflow.setTweenCount(0);
    ASSERT_TRUE(workflow.canGenerate());
    workflow.startGeneration();
    ASSERT_TRUE(runUntil(GenerationOutcome::succeeded));

    EXPECT_EQ(server.seen(proxyPath).size(), 10u);
    for (const auto& seen : server.seen(proxyPath))
        EXPECT_EQ(phaseOf(seen) == "original", false) << "a base frame was asked for";
    ASSERT_EQ(appState.images().size(), 11u);
    EXPECT_EQ(tweens(), 0u);
    const WallpaperImage* original = named("original.png");
    ASSERT_NE(original, nullptr);
    EXPECT_EQ(toBytes(fileText(*original->sourcePath)), pictures[3]);
    EXPECT_EQ(original->altitude, -30);
    EXPECT_EQ(original->azimuth, 0);
    EXPECT_EQ(workflow.state().progressMessage, "Complete!");
}

TEST_F(MagicGenerateTest, CancelDuringRelightingLeavesEmptyDocumentWithBatchStillOpen) {
    startWithOneImage();
    hook = [this](const std::string& phase, httplib::Response&) {
        if (phase == "nautical") {
            held = true;
            release.wait(std::chrono::seconds(60));
        }
        return false;
    };
    workflow.setPrompt("a harbour");
    workflow.startGeneration();
    ASSERT_TRUE(mainThread.runUntil([&] { return held.load(); }));
    EXPECT_TRUE(workflow.isRunning());
    workflow.cancelGeneration();
    EXPECT_EQ(workflow.generateButtonTitle(), "Cancelling...");
    ASSERT_TRUE(runUntil(GenerationOutcome::cancelled));
    EXPECT_FALSE(workflow.isRunning());
    workflow.waitForRunToEnd();
    release.open();
    EXPECT_EQ(phaseIndicator(workflow.state(), "nautical"), PhaseIndicator::stopped);
    EXPECT_EQ(phaseIndicator(workflow.state(), "midday"), PhaseIndicator::waiting);

    EXPECT_EQ(workflow.state().progressMessage, "Cancelled");
    EXPECT_FALSE(workflow.state().isGenerating);
    EXPECT_EQ(workflow.generateButtonTitle(), "Create Wallpaper");
    EXPECT_EQ(closed, 0);
    EXPECT_TRUE(appState.images().empty());
    EXPECT_TRUE(appState.hasOpenUndoBatch());

    // The next run's batch is ignored: its undo step comes from the batch the cancelled run
    // opened, so undo brings back the document from before both runs.
    hook = nullptr;
    workflow.setTweenCount(0);
    workflow.startGeneration();
    ASSERT_TRUE(runUntil(GenerationOutcome::succeeded));
    EXPECT_EQ(appState.images().size(), 11u);
    EXPECT_FALSE(appState.hasOpenUndoBatch());
    undoManager.undo();
    ASSERT_EQ(appState.images().size(), 1u);
    EXPECT_EQ(appState.images()[0].id, oldId);
}

TEST_F(MagicGenerateTest, ClosingTheSheetMidRunStopsTheRequestAndDropsItsReplies) {
    hook = [this](const std::string& phase, httplib::Response&) {
        if (phase == "civil") {
            held = true;
            release.wait(std::chrono::seconds(60));
            ++answeredAfterHold;
        }
        return false;
    };
    auto sheet = std::make_unique<MagicGenerateWorkflow>(appState, unconfigured, mainThread,
                                                         defaults, [this] { ++closed; });
    sheet->temporaryRoot = folder.path() / "tmp";
    sheet->setPrompt("a harbour");
    sheet->startGeneration();
    ASSERT_TRUE(mainThread.runUntil([&] { return held.load(); }));
    sheet.reset();
    EXPECT_EQ(answeredAfterHold, 0) << "closing waited for the held request to be answered";
    mainThread.drain();
    release.open();
    EXPECT_EQ(closed, 0);
    EXPECT_TRUE(appState.images().empty());
    EXPECT_LE(server.seen(proxyPath).size(), 7u) << "a batch after the held one started";
}

TEST_F(MagicGenerateTest, ServerFailureMidRunShowsItsDescriptionAndKeepsTheSheetOpen) {
    hook = [](const std::string& phase, httplib::Response& r) {
        if (phase != "golden_am")
            return false;
        r.status = 500;
        r.set_content("upstream exploded", "text/plain");
        return true;
    };
    workflow.setPrompt("a harbour");
    workflow.startGeneration();
    ASSERT_TRUE(runUntil(GenerationOutcome::failed));
    EXPECT_EQ(workflow.state().errorMessage, "Server error 500: upstream exploded");
    EXPECT_EQ(workflow.state().progressMessage, "Failed");
    EXPECT_FALSE(workflow.state().isGenerating);
    EXPECT_EQ(closed, 0);
    EXPECT_TRUE(appState.images().empty());
    EXPECT_TRUE(appState.hasOpenUndoBatch());

    // What the sheet shows: the phase that failed, the pictures that came before it.
    const MagicGenerateState& state = workflow.state();
    EXPECT_FALSE(workflow.isRunning());
    EXPECT_EQ(failureHeading(state), "Generation Failed");
    EXPECT_EQ(phaseIndicator(state, "golden_am"), PhaseIndicator::failed);
    EXPECT_EQ(phaseIndicator(state, "nautical"), PhaseIndicator::done);
    EXPECT_EQ(phaseIndicator(state, "midday"), PhaseIndicator::waiting);
    EXPECT_EQ(state.phasePreviews.at("nautical"), pictures[3]);
    EXPECT_FALSE(state.phasePreviews.contains("midday"));
    EXPECT_GE(completedPhaseCount(state), 3);
}

TEST_F(MagicGenerateTest, NewSceneModePutsTheStartingImageAsideUntilRelightComesBack) {
    const fs::path photo = folder.path() / "photo.png";
    std::ofstream(photo, std::ios::binary) << toText(pictures[3]);
    ASSERT_TRUE(workflow.setStartingImage(photo));
    workflow.setMode(GenerationMode::generate);
    EXPECT_FALSE(workflow.state().startingImageData);
    EXPECT_FALSE(workflow.canGenerate()) << "a new scene needs a prompt";
    workflow.setMode(GenerationMode::relight);
    ASSERT_TRUE(workflow.state().startingImageData);
    EXPECT_EQ(*workflow.state().startingImageData, pictures[3]);
    EXPECT_EQ(workflow.state().startingImageURL, photo);
    EXPECT_TRUE(workflow.canGenerate());

    // Removed while aside, it is gone for good.
    workflow.setMode(GenerationMode::generate);
    workflow.clearStartingImage();
    workflow.setMode(GenerationMode::relight);
    EXPECT_FALSE(workflow.state().startingImageData);

    // Bytes that turn out to be no picture leave the message of an unreadable file.
    ASSERT_TRUE(workflow.setStartingImage(photo));
    workflow.rejectStartingImage();
    EXPECT_FALSE(workflow.state().startingImageData);
    EXPECT_EQ(workflow.state().errorMessage, "Failed to load starting image.");
}

TEST(MagicGenerateSummaryTest, SmoothnessSummaryCountsKeysAndTweensOfTheWholeDay) {
    EXPECT_EQ(smoothnessSummary(0), "No in-between frames · 11 frames in all");
    EXPECT_EQ(smoothnessSummary(1), "1 in-between frame per transition · 22 frames in all");
    EXPECT_EQ(smoothnessSummary(3), "3 in-between frames per transition · 44 frames in all");
}

TEST_F(MagicGenerateTest, ProxyAnswerThatIsNoImageFailsAsDecodeFailure) {
    hook = [](const std::string&, httplib::Response& r) {
        testing::replyJson(r, R"({"choices":[{"message":{"images":[{"image_url":{"url":")" +
                                  pngDataURL(toBytes("not a picture")) + R"("}}]}}]})");
        return true;
    };
    workflow.setPrompt("a harbour");
    workflow.startGeneration();
    ASSERT_TRUE(runUntil(GenerationOutcome::failed));
    EXPECT_EQ(workflow.state().errorMessage, ImageGenerationError::decodeFailed().description());
}

// The direct route's provider, in-process: answers each phase with its own picture and records
// what it was asked. `failOn` makes one phase fail; `holdOn` keeps one until the run is stopped.
class RecordingService final : public ImageGenerationService {
public:
    struct Call {
        std::string prompt, aspectRatio, systemPrompt, imageSize;
        bool hasReference;
    };
    explicit RecordingService(const std::vector<Bytes>& pictures) : pictures_(pictures) {}
    bool isConfigured() const override { return true; }
    GeneratedImage generateImage(const std::string& prompt, const std::string&,
                                 const std::string& aspectRatio,
                                 const std::optional<Bytes>& reference,
                                 const std::optional<std::string>& systemPrompt,
                                 const std::optional<std::string>& imageSize,
                                 std::stop_token stop) const override {
        {
            std::lock_guard lock(mutex_);
            calls.push_back({prompt, aspectRatio, systemPrompt.value_or(""), imageSize.value_or(""),
                             reference.has_value()});
        }
        std::size_t index = 0;
        for (std::size_t i = 1; i < timeOfDayPhases.size(); ++i)
            if (prompt.find(" for " + std::string(timeOfDayPhases[i].label) + ".") !=
                std::string::npos)
                index = i;
        const std::string label(timeOfDayPhases[index].label);
        if (label == failOn)
            throw ImageGenerationError::requestFailed("quota exceeded");
        if (label == holdOn) {
            held = true;
            std::mutex wait;
            std::condition_variable_any woken;
            std::unique_lock lock(wait);
            woken.wait(lock, stop, [] { return false; });
            throw platform::CancellationError();
        }
        return {pictures_[index], "image/png"};
    }
    std::vector<Call> recorded() const {
        std::lock_guard lock(mutex_);
        return calls;
    }
    std::string failOn, holdOn;
    mutable std::atomic<bool> held{false};

private:
    const std::vector<Bytes>& pictures_;
    mutable std::mutex mutex_;
    mutable std::vector<Call> calls;
};

TEST_F(MagicGenerateTest, DirectRouteAsksTheProviderAndClosesItsBatchOnEveryEnd) {
    RecordingService service(pictures);
    MagicGenerateWorkflow direct(appState, service, mainThread, defaults, [this] { ++closed; });
    direct.directRouteFolder = folder.path() / "direct";
    direct.temporaryRoot = folder.path() / "tmp";
    direct.setModel("openai/gpt-image-1");
    direct.setSize("999x1");
    direct.setPrompt("a lake");
    direct.setTweenCount(0);
    direct.startGeneration();
    ASSERT_TRUE(
        mainThread.runUntil([&] { return direct.state().outcome != GenerationOutcome::none; }));
    ASSERT_EQ(direct.state().outcome, GenerationOutcome::succeeded) << *direct.state().errorMessage;

    const auto calls = service.recorded();
    ASSERT_EQ(calls.size(), 11u);
    EXPECT_EQ(calls[0].prompt, std::string(baseFramePromptHint) + "\n\na lake");
    EXPECT_FALSE(calls[0].hasReference);
    const auto midday = std::find_if(calls.begin(), calls.end(), [](const auto& call) {
        return call.prompt.find("Midday") != std::string::npos;
    });
    ASSERT_NE(midday, calls.end());
    EXPECT_EQ(midday->prompt,
              "Using the reference image above, relight the exact same scene for Midday.\n"
              "Sun altitude: 60°, azimuth: 180°.\nKeep composition and all objects identical. "
              "Only lighting and allowed sky/celestial changes may vary.");
    EXPECT_TRUE(midday->hasReference);
    EXPECT_EQ(midday->systemPrompt, consistencySystemPrompt);
    EXPECT_EQ(midday->aspectRatio, "16:9");
    EXPECT_EQ(midday->imageSize, "999x1");
    ASSERT_EQ(appState.images().size(), 11u);
    ASSERT_NE(named("generated_sunset.png"), nullptr);
    EXPECT_EQ(named("generated_sunset.png")->altitude, -0.8);
    EXPECT_EQ(toBytes(fileText(folder.path() / "direct" / "generated_sunset.png")), pictures[9]);
    EXPECT_EQ(direct.state().progressMessage, "Generation complete!");
    EXPECT_EQ(closed, 1);
    EXPECT_FALSE(appState.hasOpenUndoBatch());
    EXPECT_TRUE(undoManager.canUndo());

    // With a starting image the prompt becomes a scene hint and no base frame is asked for.
    const fs::path photo = folder.path() / "photo.png";
    std::ofstream(photo, std::ios::binary) << toText(pictures[0]);
    ASSERT_TRUE(direct.setStartingImage(photo));
    service.failOn = "Sunset";
    direct.startGeneration();
    ASSERT_TRUE(
        mainThread.runUntil([&] { return direct.state().outcome != GenerationOutcome::none; }));
    EXPECT_EQ(direct.state().outcome, GenerationOutcome::failed);
    EXPECT_EQ(direct.state().errorMessage,
              ImageGenerationError::requestFailed("quota exceeded").description());
    EXPECT_FALSE(appState.hasOpenUndoBatch()) << "the direct route closes its batch on failure";
    const auto hinted = service.recorded();
    EXPECT_EQ(hinted[11].prompt.rfind("Scene description: a lake\nUsing the reference image", 0),
              0u);

    service.failOn.clear();
    service.holdOn = "Golden AM";
    direct.startGeneration();
    ASSERT_TRUE(mainThread.runUntil([&] { return service.held.load(); }));
    direct.cancelGeneration();
    ASSERT_TRUE(
        mainThread.runUntil([&] { return direct.state().outcome != GenerationOutcome::none; }));
    EXPECT_EQ(direct.state().outcome, GenerationOutcome::cancelled);
    EXPECT_EQ(direct.state().progressMessage, "Generation cancelled.");
    EXPECT_FALSE(appState.hasOpenUndoBatch());
    EXPECT_EQ(closed, 1);
}

TEST_F(MagicGenerateTest, CommandSavesAPackageThatOpensWithPositionsAndTweens) {
    testing::ScopedEnvironment config("LUMIVESPER_CONFIG_DIR", (folder.path() / "c").string());
    const auto run = [](std::vector<std::string> arguments, std::ostringstream& err) {
        std::ostringstream out;
        int code = 0;
        testing::capturedStdout([&] { code = cli::runGenerate({std::move(arguments), out, err}); });
        return code;
    };
    std::ostringstream err;
    const fs::path package = folder.path() / "day";
    EXPECT_EQ(run({"--prompt", "x", "--tweens", "2", "-o", "f"}, err), cli::exitUsage);
    EXPECT_EQ(run({"--prompt", "x", "--tweens", "2.5", "--project", package.string()}, err),
              cli::exitUsage);
    ASSERT_EQ(run({"--prompt", "a harbour", "--tweens", "2", "--project", package.string()}, err),
              cli::exitSuccess)
        << err.str();

    const auto loaded = document::readPackage(folder.path() / "day.lvesper");
    EXPECT_TRUE(loaded.missingFileNames.empty());
    const auto& images = loaded.project.images;
    ASSERT_EQ(images.size(), 33u);
    EXPECT_EQ(std::count_if(images.begin(), images.end(), [](const auto& i) { return i.isTween; }),
              22);
    const auto phase10 = std::find_if(images.begin(), images.end(),
                                      [](const auto& i) { return i.fileName == "phase_10.png"; });
    ASSERT_NE(phase10, images.end());
    EXPECT_EQ(phase10->altitude, -3);
    EXPECT_EQ(phase10->azimuth, 270);
    EXPECT_TRUE(phase10->thumbnail);
    EXPECT_EQ(loaded.project.magicTweenCount, 2);
    EXPECT_EQ(loaded.project.magicPrompt, "a harbour");
}

TEST(MagicGenerateTables, SizesPresetsAndMoods) {
    EXPECT_EQ(aspectRatioForSize("1024x640"), "16:10");
    EXPECT_EQ(aspectRatioForSize("1536x1024"), "3:2");
    EXPECT_EQ(aspectRatioForSize("999x1"), "16:9");
    const auto first = generationSizes(), second = generationSizes();
    ASSERT_EQ(first.size(), 5u);
    EXPECT_NE(first[0].id, second[0].id);
    EXPECT_EQ(first[2].label, "Square (1024×1024)");
    EXPECT_EQ(keyImagePhase(0).id, "night");
    EXPECT_EQ(keyImagePhase(10).id, "civil_dusk");
    EXPECT_EQ(keyImagePhase(14).id, "civil_dusk");

    lumivesper::testing::TemporaryFolder folder;
    settings::Defaults defaults(folder.path() / "d.json");
    document::AppState appState;
    platform::QueuedMainThread mainThread;
    UnconfiguredService service;
    MagicGenerateWorkflow workflow(appState, service, mainThread, defaults, {});
    for (auto [preset, count] : {std::pair{SmoothnessPreset::subtle, 2},
                                 {SmoothnessPreset::cinematic, 6},
                                 {SmoothnessPreset::natural, 3}}) {
        workflow.setSmoothness(preset);
        EXPECT_EQ(workflow.state().tweenCount, count) << label(preset);
    }
    workflow.appendMood("misty");
    EXPECT_EQ(workflow.state().prompt, "misty");
    workflow.setPrompt(" a pier  \n");
    workflow.appendMood("golden light");
    EXPECT_EQ(workflow.state().prompt, "a pier, golden light");
}

TEST(MagicGenerateTables, CanGenerateNeedsTextOrImageAndAKeyForProviderModels) {
    struct Row {
        const char* model;
        const char* prompt;
        bool image;
        bool configured;
        bool expected;
    };
    const Row rows[] = {
        {magicGenerateModel, "a lake", false, false, true},
        {magicGenerateModel, "  \n", false, false, false},
        {magicGenerateModel, "", true, false, true},
        {"   ", "a lake", false, true, false},
        {"openai/gpt-image-1", "a lake", false, false, false},
        {"openai/gpt-image-1", "a lake", false, true, true},
        {"openai/gpt-image-1", "", false, true, false},
    };
    class Service final : public ImageGenerationService {
    public:
        bool configured = false;
        bool isConfigured() const override { return configured; }
        GeneratedImage generateImage(const std::string&, const std::string&, const std::string&,
                                     const std::optional<Bytes>&, const std::optional<std::string>&,
                                     const std::optional<std::string>&,
                                     std::stop_token) const override {
            return {};
        }
    };
    lumivesper::testing::TemporaryFolder folder;
    const fs::path photo = folder.path() / "p.png";
    std::ofstream(photo) << "x";
    settings::Defaults defaults(folder.path() / "d.json");
    for (const Row& row : rows) {
        document::AppState appState;
        platform::QueuedMainThread mainThread;
        Service service;
        service.configured = row.configured;
        MagicGenerateWorkflow workflow(appState, service, mainThread, defaults, {});
        workflow.setModel(row.model);
        workflow.setPrompt(row.prompt);
        if (row.image)
            workflow.setStartingImage(photo);
        EXPECT_EQ(workflow.canGenerate(), row.expected) << row.model << " / '" << row.prompt << "'";
        EXPECT_EQ(workflow.configurationNotice().has_value(),
                  std::string_view(row.model).find("local/") != 0 && !row.configured);
    }
}

} // namespace
} // namespace lumivesper::generation
