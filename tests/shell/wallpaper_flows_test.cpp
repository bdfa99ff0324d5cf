#include "desktop/desktop_background_error.h"
#include "export/wallpaper_reader.h"
#include "platform/cancellation.h"
#include "shell/desktop_background_flow.h"
#include "shell/job_progress_view.h"
#include "shell/menu_model.h"
#include "shell/wallpaper_import_flow.h"
#include "shell_fixture.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <thread>

namespace lumivesper::shell {
namespace {

namespace fs = std::filesystem;

// Notes what the window would show, and keeps the Cancel button's action.
class RecordingProgress final : public JobProgressView {
public:
    void show(const std::string& title, std::function<void()> onCancel) override {
        titles.push_back(title);
        cancel = std::move(onCancel);
        visible = true;
    }
    void update(int current, int total, const std::string& message) override {
        steps.push_back(std::to_string(current) + "/" + std::to_string(total) + " " + message);
    }
    void hide() override { visible = false; }

    std::vector<std::string> titles, steps;
    std::function<void()> cancel;
    bool visible = false;
};

class ScriptedSetupPrompt final : public BackgroundSetupPrompt {
public:
    std::optional<BackgroundSetup> ask(const BackgroundSetupQuestion& question) override {
        questions.push_back(question);
        return answer;
    }
    std::vector<BackgroundSetupQuestion> questions;
    std::optional<BackgroundSetup> answer;
};

// An empty project package, made the way the real import makes one: whole, at the given path.
void writeEmptyPackage(const fs::path& package) {
    std::ostringstream ignored;
    platform::TextDialogs quiet(ignored);
    document::AppState empty;
    document::ProjectIO(quiet).save(package, empty);
}

class WallpaperImportFlowTest : public ShellTest {
protected:
    WallpaperImportFlowTest() {
        center.setWallpaperImporter([this] { flow.chooseAndImport(); });
    }

    bool finished() {
        return dialogs.mainThread.runUntil([this] { return !flow.isImporting(); });
    }

    RecordingProgress progress;
    std::vector<std::pair<fs::path, fs::path>> imports;
    std::function<void(std::stop_token)> importBehaviour; // before the package is written
    WallpaperImportFlow flow{
        center,
        io,
        dialogs,
        dialogs.mainThread,
        progress,
        [this](const fs::path& wallpaper, const fs::path& package, std::stop_token stop,
               const exporting::ProgressCallback& report) {
            imports.emplace_back(wallpaper, package);
            if (importBehaviour)
                importBehaviour(stop);
            report(1, 2, "Decoded image 1/2");
            writeEmptyPackage(package);
            return package;
        },
        [](const fs::path& file) { return file.stem().string().starts_with("dynamic"); }};
};

TEST_F(WallpaperImportFlowTest, MenuImportAsksAboutChangesChoosesAPackageAndOpensIt) {
    state.addImage(image("unsaved.png"));
    ui.setLastSaveDirectory(folder.path());
    const fs::path wallpaper = folder.path() / "downloads" / "Mojave Dunes.heic";
    dialogs.alertAnswers = {2}; // Don't Save
    dialogs.openAnswers = {{wallpaper}};
    dialogs.saveAnswers = {folder.path() / "Dunes"}; // typed without the extension

    const auto menus = buildMenus(center, &undo);
    const auto& file = menus.at(2);
    const auto entry = std::find_if(file.entries.begin(), file.entries.end(), [](const auto& e) {
        return e.command == MenuCommand::importDynamicWallpaper;
    });
    ASSERT_NE(entry, file.entries.end());
    EXPECT_EQ(entry->title, "Import Dynamic Wallpaper...");
    EXPECT_TRUE(entry->enabled);
    performMenuCommand(*entry, center, &undo);
    drain();
    ASSERT_TRUE(finished());

    ASSERT_EQ(dialogs.alerts.size(), 1u);
    EXPECT_EQ(dialogs.alerts[0].informativeText,
              "Do you want to save before import dynamic wallpaper?");
    ASSERT_EQ(dialogs.openPanels.size(), 1u);
    EXPECT_EQ(dialogs.openPanels[0].filter->extensions, (std::vector<std::string>{"heic", "heif"}));
    ASSERT_EQ(dialogs.savePanels.size(), 1u);
    EXPECT_EQ(dialogs.savePanels[0].nameFieldStringValue, "Mojave Dunes.lvesper");
    EXPECT_EQ(dialogs.savePanels[0].directory, folder.path());

    const fs::path package = folder.path() / "Dunes.lvesper";
    ASSERT_EQ(imports.size(), 1u);
    EXPECT_EQ(imports[0], std::make_pair(wallpaper, package));
    EXPECT_EQ(state.currentProjectPath(), package);
    EXPECT_TRUE(state.images().empty()); // the unsaved image went with "Don't Save"
    EXPECT_FALSE(state.isDirty());
    EXPECT_EQ(ui.lastImportDirectory(), wallpaper.parent_path());
    EXPECT_EQ(progress.titles,
              (std::vector<std::string>{"Importing \u201cMojave Dunes.heic\u201d\u2026"}));
    EXPECT_EQ(progress.steps, (std::vector<std::string>{"1/2 Decoded image 1/2"}));
    EXPECT_FALSE(progress.visible);
}

TEST_F(WallpaperImportFlowTest, NothingIsImportedWhenTheUserStepsBackOrTheTargetExists) {
    state.addImage(image("unsaved.png"));
    dialogs.alertAnswers = {1}; // Cancel at the unsaved-changes question
    center.importDynamicWallpaper();
    drain();
    EXPECT_TRUE(dialogs.openPanels.empty());

    state.resetProject("Close Project");
    dialogs.openAnswers = {{}}; // the open panel cancelled
    center.importDynamicWallpaper();
    drain();
    EXPECT_TRUE(dialogs.savePanels.empty());

    const fs::path existing = savedPackage("Taken.lvesper");
    dialogs.openAnswers = {{folder.path() / "dynamic.heic"}};
    dialogs.saveAnswers = {existing};
    center.importDynamicWallpaper();
    drain();
    EXPECT_TRUE(imports.empty());
    ASSERT_EQ(dialogs.alerts.size(), 2u);
    EXPECT_EQ(dialogs.alerts[1].message, "\u201cTaken.lvesper\u201d already exists.");
    EXPECT_FALSE(state.currentProjectPath());
}

TEST_F(WallpaperImportFlowTest, CancelStopsTheImportSilentlyAndAFailureIsShown) {
    importBehaviour = [&](std::stop_token stop) {
        while (!stop.stop_requested())
            std::this_thread::yield();
        throw platform::CancellationError();
    };
    dialogs.openAnswers = {{folder.path() / "dynamic.heic"}};
    dialogs.saveAnswers = {folder.path() / "Stopped.lvesper"};
    center.importDynamicWallpaper();
    drain();
    ASSERT_TRUE(flow.isImporting());
    ASSERT_TRUE(progress.visible);
    progress.cancel();
    ASSERT_TRUE(finished());
    EXPECT_TRUE(dialogs.alerts.empty());
    EXPECT_FALSE(progress.visible);
    EXPECT_FALSE(state.currentProjectPath());

    importBehaviour = [](std::stop_token) {
        throw exporting::WallpaperReadError("The file is not a dynamic wallpaper.");
    };
    dialogs.openAnswers = {{folder.path() / "dynamic.heic"}};
    dialogs.saveAnswers = {folder.path() / "Broken.lvesper"};
    center.importDynamicWallpaper();
    drain();
    ASSERT_TRUE(finished());
    ASSERT_EQ(dialogs.alerts.size(), 1u);
    EXPECT_EQ(dialogs.alerts[0].message, "Could not import \u201cdynamic.heic\u201d.");
    EXPECT_EQ(dialogs.alerts[0].informativeText, "The file is not a dynamic wallpaper.");
    EXPECT_EQ(dialogs.alerts[0].style, platform::AlertStyle::critical);
    EXPECT_FALSE(state.currentProjectPath());
}

TEST_F(WallpaperImportFlowTest, ADroppedDynamicWallpaperOffersAProjectAndPlainFilesStayImages) {
    std::vector<std::vector<fs::path>> added;
    auto addImages = [&](std::vector<fs::path> files) { added.push_back(std::move(files)); };
    const fs::path photo = folder.path() / "photo.jpg";
    const fs::path plainHeic = folder.path() / "phone.HEIC";
    const fs::path wallpaper = folder.path() / "dynamic-desert.heif";

    // Nothing that could be a wallpaper: added at once, no question.
    flow.offerDroppedFiles({photo}, addImages);
    ASSERT_EQ(added.size(), 1u);
    // A plain HEIC photo is looked into and added as before.
    flow.offerDroppedFiles({plainHeic, photo}, addImages);
    ASSERT_TRUE(dialogs.mainThread.runUntil([&] { return added.size() == 2; }));
    EXPECT_EQ(added[1], (std::vector<fs::path>{plainHeic, photo}));
    EXPECT_TRUE(dialogs.alerts.empty());

    // "Add as Images" keeps the drop as it came, in its order.
    dialogs.alertAnswers = {1};
    flow.offerDroppedFiles({photo, wallpaper, plainHeic}, addImages);
    ASSERT_TRUE(dialogs.mainThread.runUntil([&] { return !dialogs.alerts.empty(); }));
    EXPECT_EQ(dialogs.alerts[0].message, "\u201cdynamic-desert.heif\u201d is a dynamic wallpaper.");
    EXPECT_EQ(dialogs.alerts[0].buttons,
              (std::vector<std::string>{"Import as New Project", "Add as Images", "Cancel"}));
    ASSERT_EQ(added.size(), 3u);
    EXPECT_EQ(added[2], (std::vector<fs::path>{photo, wallpaper, plainHeic}));

    // Cancel does nothing at all.
    dialogs.alertAnswers = {2};
    flow.offerDroppedFiles({wallpaper}, addImages);
    ASSERT_TRUE(dialogs.mainThread.runUntil([&] { return dialogs.alerts.size() == 2; }));
    EXPECT_EQ(dialogs.alerts[1].buttons[1], "Add as Image");
    EXPECT_EQ(added.size(), 3u);

    // "Import as New Project" goes the way of the menu, from the package location on.
    dialogs.alertAnswers = {0};
    dialogs.saveAnswers = {folder.path() / "Desert.lvesper"};
    flow.offerDroppedFiles({wallpaper}, addImages);
    ASSERT_TRUE(dialogs.mainThread.runUntil([&] { return !imports.empty(); }));
    ASSERT_TRUE(finished());
    EXPECT_EQ(dialogs.savePanels.at(0).nameFieldStringValue, "dynamic-desert.lvesper");
    EXPECT_EQ(dialogs.savePanels.at(0).directory, folder.path()); // beside it: no save folder yet
    EXPECT_EQ(state.currentProjectPath(), folder.path() / "Desert.lvesper");
    EXPECT_EQ(added.size(), 3u);
}

class DesktopBackgroundFlowTest : public ShellTest {
protected:
    DesktopBackgroundFlowTest() {
        center.setDesktopBackgroundSetter([this] { flow.setAsDesktopBackground(); });
    }

    // A saved time project with one image.
    fs::path savedProject(const std::string& name) {
        state.addImage(image("noon.png"));
        const fs::path package = folder.path() / name;
        io.save(package, state);
        return package;
    }

    bool finished() {
        return dialogs.mainThread.runUntil([this] { return !flow.isApplying(); });
    }

    RecordingProgress progress;
    ScriptedSetupPrompt prompt;
    std::vector<desktop::ApplyRequest> requests;
    std::optional<desktop::DesktopKind> sessionDesktop = desktop::DesktopKind::gnome;
    std::function<desktop::ApplyResult()> outcome = [] { return desktop::ApplyResult{}; };
    DesktopBackgroundFlow flow{center,
                               io,
                               defaults,
                               dialogs,
                               dialogs.mainThread,
                               progress,
                               prompt,
                               {"/opt/lumivesper/bin/lumivesper-cli", "apply", "--refresh"},
                               [this](const desktop::ApplyRequest& request, std::stop_token,
                                      const exporting::ProgressCallback& report) {
                                   requests.push_back(request);
                                   report(1, 1, "Prepared picture 1/1");
                                   return outcome();
                               },
                               [this] { return sessionDesktop; }};
};

TEST_F(DesktopBackgroundFlowTest, ASavedProjectGoesOnTheDesktopAtThePlaceOfTheSunPreview) {
    EXPECT_FALSE(center.canSetDesktopBackground()); // nothing to show yet
    const fs::path package = savedProject("Dunes.lvesper");
    flow.setLocationSource([] { return desktop::Location{-33.87, 151.21}; });
    outcome = [] { return desktop::ApplyResult{{}, {"systemctl --user is not available"}}; };

    const auto menus = buildMenus(center, &undo);
    const auto& entries = menus.at(2).entries;
    const auto entry = std::find_if(entries.begin(), entries.end(), [](const auto& e) {
        return e.command == MenuCommand::setDesktopBackground;
    });
    ASSERT_NE(entry, entries.end());
    EXPECT_EQ(entry->title, "Set as Desktop Background");
    ASSERT_TRUE(entry->enabled);
    performMenuCommand(*entry, center, &undo);
    ASSERT_TRUE(finished());

    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].source, package);
    EXPECT_EQ(requests[0].desktop, desktop::DesktopKind::gnome);
    EXPECT_TRUE(requests[0].command.empty());
    ASSERT_TRUE(requests[0].location);
    EXPECT_DOUBLE_EQ(requests[0].location->latitude, -33.87);
    EXPECT_EQ(
        requests[0].refreshCommand,
        (std::vector<std::string>{"/opt/lumivesper/bin/lumivesper-cli", "apply", "--refresh"}));
    EXPECT_TRUE(prompt.questions.empty());
    EXPECT_EQ(progress.titles, (std::vector<std::string>{
                                   "Setting \u201cDunes\u201d as the desktop background\u2026"}));
    EXPECT_FALSE(progress.visible);

    ASSERT_EQ(dialogs.alerts.size(), 1u);
    const auto& done = dialogs.alerts[0];
    EXPECT_EQ(done.style, platform::AlertStyle::informational);
    EXPECT_EQ(done.message, "\u201cDunes\u201d is now your desktop background.");
    EXPECT_NE(done.informativeText.find("33.87\u00b0 S, 151.21\u00b0 E"), std::string::npos);
    EXPECT_NE(done.informativeText.find("systemctl --user is not available"), std::string::npos);
}

TEST_F(DesktopBackgroundFlowTest, WhatIsMissingIsAskedOnceAndRemembered) {
    savedProject("Dunes.lvesper");
    sessionDesktop = std::nullopt; // neither GNOME nor Plasma
    prompt.answer = BackgroundSetup{desktop::Location{52.52, 13.405}, "swaybg -i {}"};
    center.setAsDesktopBackground();
    ASSERT_TRUE(finished());
    ASSERT_EQ(prompt.questions.size(), 1u);
    EXPECT_TRUE(prompt.questions[0].needsLocation);
    EXPECT_TRUE(prompt.questions[0].needsCommand);
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].command, "swaybg -i {}");
    EXPECT_DOUBLE_EQ(requests[0].location->longitude, 13.405);

    // Remembered across a restart: nothing is asked again.
    settings::Defaults reread(defaults.file());
    DesktopBackgroundFlow again(
        center, io, reread, dialogs, dialogs.mainThread, progress, prompt, {"lumivesper-cli"},
        [this](const desktop::ApplyRequest& request, std::stop_token,
               const exporting::ProgressCallback&) {
            requests.push_back(request);
            return desktop::ApplyResult{};
        },
        [] { return std::nullopt; });
    again.setAsDesktopBackground();
    ASSERT_TRUE(dialogs.mainThread.runUntil([&] { return !again.isApplying(); }));
    EXPECT_EQ(prompt.questions.size(), 1u);
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[1].command, "swaybg -i {}");
    EXPECT_DOUBLE_EQ(requests[1].location->latitude, 52.52);

    // A command without a place for the picture, or a cancelled question, applies nothing.
    defaults.remove(DesktopBackgroundFlow::commandKey);
    prompt.answer = BackgroundSetup{std::nullopt, "swaybg"};
    flow.setAsDesktopBackground();
    prompt.answer.reset();
    flow.setAsDesktopBackground();
    EXPECT_EQ(prompt.questions.size(), 3u);
    EXPECT_FALSE(prompt.questions[1].needsLocation); // the place is known by now
    EXPECT_EQ(requests.size(), 2u);
}

TEST_F(DesktopBackgroundFlowTest, AnAppearanceProjectNeedsNoPlace) {
    state.setMode(document::WallpaperMode::appearance);
    savedProject("Light and Dark.lvesper");
    center.setAsDesktopBackground();
    ASSERT_TRUE(finished());
    EXPECT_TRUE(prompt.questions.empty());
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_FALSE(requests[0].location);
    EXPECT_NE(dialogs.alerts.at(0).informativeText.find("dark style"), std::string::npos);
}

TEST_F(DesktopBackgroundFlowTest, UnsavedWorkIsSavedFirstOrNothingHappens) {
    flow.setLocationSource([] { return desktop::Location{40, 0}; });
    const fs::path package = savedProject("Dunes.lvesper");
    state.addImage(image("dusk.png")); // now dirty
    dialogs.alertAnswers = {1};        // Cancel
    center.setAsDesktopBackground();
    drain();
    EXPECT_TRUE(requests.empty());
    EXPECT_EQ(dialogs.alerts.at(0).message, "Save the project first?");

    dialogs.alertAnswers = {0}; // Save
    center.setAsDesktopBackground();
    ASSERT_TRUE(finished());
    EXPECT_FALSE(state.isDirty());
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(document::readPackage(package, false).project.images.size(), 2u);

    // A project never saved goes through the save panel; cancelling it applies nothing.
    state.resetProject("New Project");
    state.addImage(image("noon.png"));
    dialogs.alertAnswers = {0};
    center.setAsDesktopBackground();
    drain();
    EXPECT_EQ(dialogs.savePanels.at(0).nameFieldStringValue, "Untitled.lvesper");
    EXPECT_EQ(requests.size(), 1u);
    dialogs.alertAnswers = {0};
    dialogs.saveAnswers = {folder.path() / "Fresh"};
    center.setAsDesktopBackground();
    drain();
    ASSERT_TRUE(finished());
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[1].source, folder.path() / "Fresh.lvesper");
}

TEST_F(DesktopBackgroundFlowTest, AFailureIsShownWithItsReason) {
    flow.setLocationSource([] { return desktop::Location{40, 0}; });
    savedProject("Dunes.lvesper");
    outcome = []() -> desktop::ApplyResult {
        throw desktop::DesktopBackgroundError("gsettings is not installed.");
    };
    center.setAsDesktopBackground();
    ASSERT_TRUE(finished());
    ASSERT_EQ(dialogs.alerts.size(), 1u);
    EXPECT_EQ(dialogs.alerts[0].style, platform::AlertStyle::critical);
    EXPECT_EQ(dialogs.alerts[0].message,
              "Could not set \u201cDunes\u201d as the desktop background.");
    EXPECT_EQ(dialogs.alerts[0].informativeText, "gsettings is not installed.");
}

TEST(CompanionCliProgram, IsFoundBesideTheApplicationOrInTheBuildTreeElseOnThePath) {
    testing::TemporaryFolder folder;
    const fs::path installed = folder.path() / "bin";
    const fs::path built = folder.path() / "build" / "src" / "shell" / "app";
    fs::create_directories(installed);
    fs::create_directories(built);
    fs::create_directories(folder.path() / "build" / "src" / "cli");
    std::ofstream(installed / "lumivesper-cli") << "";
    std::ofstream(folder.path() / "build" / "src" / "cli" / "lumivesper-cli") << "";
    EXPECT_EQ(companionCliProgram(installed), installed / "lumivesper-cli");
    EXPECT_EQ(companionCliProgram(built),
              folder.path() / "build" / "src" / "cli" / "lumivesper-cli");
    EXPECT_EQ(companionCliProgram(folder.path()), "lumivesper-cli");
}

} // namespace
} // namespace lumivesper::shell
