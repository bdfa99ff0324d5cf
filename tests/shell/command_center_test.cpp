#include "document/undo_manager.h"
#include "platform/image_io.h"
#include "shell/menu_model.h"
#include "shell_fixture.h"

#include <fstream>

namespace lumivesper::shell {
namespace {

const MenuEntry& find(const std::vector<Menu>& menus, const std::string& title) {
    for (const auto& menu : menus) {
        for (const auto& item : menu.entries)
            if (item.title == title)
                return item;
    }
    throw std::runtime_error("no menu entry " + title);
}

bool enabled(const std::vector<Menu>& menus, const std::string& title) {
    return find(menus, title).enabled;
}

TEST_F(ShellTest, MenuEntriesAreEnabledByTheDocumentsState) {
    const std::vector<std::string> titles = {"Undo",          "Delete All",
                                             "Close Project", "Save",
                                             "Save As...",    "Export Dynamic Wallpaper...",
                                             "Play Playback"};
    auto states = [&] {
        const auto menus = buildMenus(center, &undo);
        std::vector<bool> result;
        for (const auto& title : titles)
            result.push_back(enabled(menus, title));
        return result;
    };
    // Empty and clean: Save As stays, so a clean project can still be copied.
    EXPECT_EQ(states(), (std::vector<bool>{false, false, false, false, true, false, false}));
    const auto menus = buildMenus(center, &undo);
    EXPECT_EQ(find(menus, "Save").shortcut, (KeyShortcut{"S", true, false}));
    EXPECT_EQ(find(menus, "Save As...").shortcut, (KeyShortcut{"S", true, true}));
    EXPECT_EQ(find(menus, "Open Recent").submenu.at(0).title, "No Recent Projects");

    state.addImage(image("key.png"));
    state.addImage(image("tween.png", true));
    EXPECT_EQ(states(), (std::vector<bool>{true, true, true, true, true, true, true}));
    performMenuCommand(find(buildMenus(center, &undo), "Play Playback"), center, &undo);
    EXPECT_TRUE(enabled(buildMenus(center, &undo), "Pause Playback"));

    ui.setTimelinePlaying(false);
    state.setMode(document::WallpaperMode::appearance); // playback needs time mode
    EXPECT_FALSE(enabled(buildMenus(center, &undo), "Play Playback"));
    center.togglePlayback();
    EXPECT_FALSE(ui.isTimelinePlaying());
}

TEST_F(ShellTest, RecentEntriesOpenThroughThePromptAndClearMenuStoresAnEmptyList) {
    const auto package = savedPackage("Recent.lvesper");
    state.addRecentProject(package);
    auto menus = buildMenus(center, &undo);
    const auto& recent = find(menus, "Open Recent");
    ASSERT_EQ(recent.submenu.size(), 3u);
    EXPECT_EQ(recent.submenu[0].title, "Recent");
    EXPECT_EQ(recent.submenu[2].title, "Clear Menu");

    performMenuCommand(recent.submenu[0], center, &undo);
    EXPECT_EQ(state.currentProjectPath(), package);

    performMenuCommand(recent.submenu[2], center, &undo);
    EXPECT_TRUE(state.recentProjects().empty());
}

TEST_F(ShellTest, DeleteAllTweensAsksWithTheCountAndOnlyDeleteDeletes) {
    center.confirmDeleteAllTweens();
    EXPECT_TRUE(dialogs.alerts.empty()); // no tweens: no alert

    auto key = image("key.png");
    state.addImage(key);
    state.addImage(image("t1.png", true));
    dialogs.alertAnswers = {0};
    center.confirmDeleteAllTweens();
    ASSERT_EQ(dialogs.alerts.size(), 1u);
    EXPECT_EQ(dialogs.alerts[0].message, "Delete All Tweens?");
    EXPECT_EQ(dialogs.alerts[0].informativeText,
              "This will delete 1 tween image. This action can be undone.");
    EXPECT_EQ(dialogs.alerts[0].buttons, (std::vector<std::string>{"Cancel", "Delete"}));
    EXPECT_TRUE(center.hasTweens());

    state.addImage(image("t2.png", true));
    dialogs.alertAnswers = {1};
    center.confirmDeleteAllTweens();
    EXPECT_EQ(dialogs.alerts[1].informativeText,
              "This will delete 2 tween images. This action can be undone.");
    EXPECT_FALSE(center.hasTweens());
}

TEST_F(ShellTest, SaveWithoutAPathIsSaveAsWithTheUntitledName) {
    state.addImage(image("a.png"));
    center.saveProject();
    drain();
    ASSERT_EQ(dialogs.savePanels.size(), 1u);
    EXPECT_EQ(dialogs.savePanels[0].nameFieldStringValue, "Untitled.lvesper");
}

TEST_F(ShellTest, SaveAsProposesThePackagesOwnNameAndAddsTheExtensionToATypedOne) {
    const auto trip = savedPackage("Trip.lvesper");
    center.openProject(trip.string() + "/"); // as shell completion gives it
    center.saveProjectAs();
    dialogs.saveAnswers = {folder.path() / "Copy"};
    drain();
    ASSERT_EQ(dialogs.savePanels.size(), 1u);
    EXPECT_EQ(dialogs.savePanels[0].nameFieldStringValue, "Trip.lvesper");
    EXPECT_EQ(state.currentProjectPath(), folder.path() / "Copy.lvesper");
    EXPECT_TRUE(std::filesystem::exists(folder.path() / "Copy.lvesper" / "project.json"));
    EXPECT_EQ(ui.lastSaveDirectory(), folder.path());
}

TEST_F(ShellTest, ImportAddsTheGoodFilesAndRemembersTheFirstFolder) {
    const auto good = folder.path() / "in" / "good.png";
    std::filesystem::create_directories(good.parent_path());
    platform::PixelImage pixels(4, 4);
    platform::writePng(pixels, good);
    const auto bad = folder.path() / "in" / "bad.png";
    std::ofstream(bad) << "not an image";
    dialogs.openAnswers = {{bad, good}};

    center.importImages();
    drain();
    ASSERT_EQ(state.images().size(), 1u);
    EXPECT_EQ(state.images()[0].fileName, "good.png");
    EXPECT_EQ(ui.lastImportDirectory(), good.parent_path());

    AppUIState reloaded{defaults}; // the directory persisted
    EXPECT_EQ(reloaded.lastImportDirectory(), good.parent_path());
}

TEST_F(ShellTest, NewAndCloseReturnToGridView) {
    state.addImage(image("a.png"));
    ui.setViewMode(LibraryViewMode::single);
    center.closeProject();
    EXPECT_EQ(ui.viewMode(), LibraryViewMode::grid);
    EXPECT_EQ(undo.undoActionName(), "Close Project");
    ui.setViewMode(LibraryViewMode::list);
    center.newProject();
    EXPECT_EQ(ui.viewMode(), LibraryViewMode::grid);
    EXPECT_EQ(undo.undoActionName(), "New Project");
}

TEST_F(ShellTest, ToolbarEnabledRules) {
    auto enabledItem = [&](ToolbarAction action) {
        for (const auto& item : center.toolbarItems())
            if (item.action == action)
                return item.enabled;
        return false;
    };
    EXPECT_FALSE(enabledItem(ToolbarAction::autoTween));
    EXPECT_FALSE(enabledItem(ToolbarAction::save));
    EXPECT_FALSE(enabledItem(ToolbarAction::exportWallpaper));
    state.addImage(image("a.png"));
    state.addImage(image("t.png", true));
    EXPECT_FALSE(enabledItem(ToolbarAction::autoTween)); // one key image
    state.addImage(image("b.png"));
    EXPECT_TRUE(enabledItem(ToolbarAction::autoTween));
    EXPECT_TRUE(enabledItem(ToolbarAction::save));
    EXPECT_TRUE(enabledItem(ToolbarAction::exportWallpaper));
}

TEST_F(ShellTest, UpdateCheckGoesToTheUpdaterOnceLaunched) {
    struct CountingUpdater : UpdateController {
        int* checks;
        explicit CountingUpdater(int* counter) : checks(counter) {}
        void checkForUpdates() override { ++*checks; }
        void checkForUpdatesInBackground() override { ++*checks; }
        void resetUpdateCycle() override {}
        void cancelCheck() override {}
    };
    int checks = 0;
    delegate.applicationDidFinishLaunching(
        [&](settings::UpdaterDelegate&) { return std::make_unique<CountingUpdater>(&checks); });
    center.checkForUpdates();
    EXPECT_EQ(checks, 1);
    channels.setCurrentChannel(settings::UpdateChannel::beta); // re-checks in the background
    EXPECT_EQ(checks, 2);
    EXPECT_EQ(delegate.feedURLString(), "https://updates.invalid/api/updates/appcast-beta.xml");
}

} // namespace
} // namespace lumivesper::shell
