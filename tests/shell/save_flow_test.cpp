#include "shell_fixture.h"

#include <fstream>

namespace lumivesper::shell {
namespace {

enum Button : std::size_t { first = 0, second = 1, third = 2 };

TEST_F(ShellTest, CleanDocumentRunsTheCommandAndQuitsWithoutAsking) {
    bool ran = false;
    saveFlow.confirmUnsaved("Create New Project", state, [&] { ran = true; });
    EXPECT_TRUE(ran);
    EXPECT_EQ(delegate.applicationShouldTerminate(), TerminateReply::now);
    EXPECT_TRUE(dialogs.alerts.empty());
}

TEST_F(ShellTest, PromptUsesTheActionNameAsItComes) {
    state.addImage(image("a.png"));
    dialogs.alertAnswers = {Button::second};
    center.requestNewProject();
    ASSERT_EQ(dialogs.alerts.size(), 1u);
    const auto& alert = dialogs.alerts[0];
    EXPECT_EQ(alert.message, "You have unsaved changes.");
    EXPECT_EQ(alert.informativeText, "Do you want to save before create new project?");
    EXPECT_EQ(alert.style, platform::AlertStyle::warning);
    EXPECT_EQ(alert.buttons, (std::vector<std::string>{"Save", "Cancel", "Don't Save"}));
    drain();
    EXPECT_EQ(state.images().size(), 1u); // Cancel: nothing happened
    EXPECT_TRUE(dialogs.savePanels.empty());
}

TEST_F(ShellTest, DontSaveRunsTheCommandAndLeavesTheDocumentDirtyForIt) {
    state.addImage(image("a.png"));
    dialogs.alertAnswers = {Button::third};
    bool ran = false;
    saveFlow.confirmUnsaved("Close Project", state, [&] {
        ran = true;
        EXPECT_TRUE(state.isDirty());
    });
    EXPECT_TRUE(ran);
    EXPECT_TRUE(dialogs.savePanels.empty());
}

TEST_F(ShellTest, SaveOnANeverSavedDocumentUsesThePanelAndACancelStopsTheCommand) {
    state.addImage(image("a.png"));
    dialogs.alertAnswers = {Button::first};
    dialogs.saveAnswers = {std::nullopt};
    bool ran = false;
    saveFlow.confirmUnsaved("Open Project", state, [&] { ran = true; });
    drain();
    ASSERT_EQ(dialogs.savePanels.size(), 1u);
    EXPECT_EQ(dialogs.savePanels[0].nameFieldStringValue, "Untitled.lvesper");
    EXPECT_FALSE(ran);
}

TEST_F(ShellTest, SaveThatFailsStillRunsTheCommandAfterItsAlert) {
    state.addImage(image("a.png"));
    // A package path below a regular file cannot be created.
    std::ofstream(folder.path() / "blocker") << "x";
    state.markSaved(folder.path() / "blocker" / "Doc.lvesper", state.images());
    state.addImage(image("b.png"));
    dialogs.alertAnswers = {Button::first};
    bool ran = false;
    saveFlow.confirmUnsaved("Close Project", state, [&] { ran = true; });
    EXPECT_TRUE(ran);
    ASSERT_EQ(dialogs.alerts.size(), 2u);
    EXPECT_EQ(dialogs.alerts[1].message, "Save Failed");
}

TEST_F(ShellTest, QuitCancelKeepsTheApplicationAndTheNextCloseAsksAgain) {
    state.addImage(image("a.png"));
    dialogs.alertAnswers = {Button::second, Button::second};
    EXPECT_EQ(delegate.applicationShouldTerminate(), TerminateReply::later);
    EXPECT_EQ(dialogs.alerts[0].informativeText, "Do you want to save before quitting?");
    EXPECT_EQ(dialogs.alerts[0].buttons,
              (std::vector<std::string>{"Save & Quit", "Cancel", "Don't Save"}));
    EXPECT_EQ(platformReplies, std::vector<bool>{false});
    EXPECT_FALSE(delegate.isTerminating());

    EXPECT_FALSE(delegate.windowShouldClose([] {}));
    EXPECT_EQ(dialogs.alerts.size(), 2u);
}

TEST_F(ShellTest, SaveAndQuitWithTheLongUntitledNameAndACancelledPanelStaysOpen) {
    state.addImage(image("a.png"));
    dialogs.alertAnswers = {Button::first};
    dialogs.saveAnswers = {std::nullopt};
    delegate.applicationShouldTerminate();
    EXPECT_TRUE(platformReplies.empty()); // the panel comes a moment later
    drain();
    ASSERT_EQ(dialogs.savePanels.size(), 1u);
    EXPECT_EQ(dialogs.savePanels[0].nameFieldStringValue, "Untitled.lumivesper");
    EXPECT_EQ(platformReplies, std::vector<bool>{false});
    EXPECT_FALSE(delegate.isTerminating());
}

TEST_F(ShellTest, SaveAndQuitThroughThePanelSavesThenRepliesOnce) {
    state.addImage(image("a.png"));
    const auto chosen = folder.path() / "Chosen.lvesper";
    dialogs.alertAnswers = {Button::first};
    dialogs.saveAnswers = {chosen};
    delegate.applicationShouldTerminate();
    drain();
    EXPECT_EQ(platformReplies, std::vector<bool>{true});
    EXPECT_TRUE(delegate.isTerminating());
    EXPECT_TRUE(std::filesystem::exists(chosen / "project.json"));
    EXPECT_EQ(ui.lastSaveDirectory(), folder.path());
}

TEST_F(ShellTest, DirtyCloseWithDontSaveClosesWithoutASecondPrompt) {
    state.addImage(image("a.png"));
    dialogs.alertAnswers = {Button::third};
    int closes = 0;
    std::function<void()> performClose = [&] {
        ++closes;
        if (delegate.windowShouldClose(performClose))
            ++closes;
    };
    EXPECT_FALSE(delegate.windowShouldClose(performClose));
    EXPECT_EQ(closes, 2); // performClose ran, and the nested check let it through
    EXPECT_EQ(dialogs.alerts.size(), 1u);
    EXPECT_EQ(dialogs.alerts[0].informativeText, "Do you want to save before close?");
    EXPECT_FALSE(delegate.shouldBypassCloseCheck());
}

TEST_F(ShellTest, DirtyCloseAnsweredCancelKeepsTheWindow) {
    state.addImage(image("a.png"));
    dialogs.alertAnswers = {Button::second};
    bool closed = false;
    EXPECT_FALSE(delegate.windowShouldClose([&] { closed = true; }));
    EXPECT_FALSE(closed);
    EXPECT_FALSE(delegate.shouldBypassCloseCheck());
}

TEST_F(ShellTest, FileArrivingBeforeTheWindowIsParkedAndTheLastOneOpens) {
    const auto first = savedPackage("First.lumivesper");
    const auto second = savedPackage("Second.lumivesper");
    AppLifecycleDelegate coldStart{channels, [] { return std::string(); }, [](bool) {}};
    EXPECT_FALSE(coldStart.openFile(folder.path() / "Other.lvesper")); // wrong entry point
    coldStart.openURL(folder.path() / "Early.lvesper"); // a launch argument: parked as well
    EXPECT_EQ(coldStart.pendingFileURL(), folder.path() / "Early.lvesper");
    EXPECT_TRUE(coldStart.openFile(first));
    EXPECT_TRUE(coldStart.openFile(second));
    EXPECT_EQ(coldStart.pendingFileURL(), second);

    coldStart.bindCommandCenter(center, post());
    EXPECT_FALSE(state.currentProjectPath()); // opens on the next turn of the main queue
    drain();
    EXPECT_EQ(state.currentProjectPath(), second);
    EXPECT_TRUE(dialogs.alerts.empty()); // a clean document: no prompt
}

TEST_F(ShellTest, UrlPathAcceptsOnlyTheShortExtension) {
    const auto package = savedPackage("Short.lvesper");
    delegate.openURL(folder.path() / "Long.lumivesper");
    EXPECT_FALSE(state.currentProjectPath());
    delegate.openURL(package);
    EXPECT_EQ(state.currentProjectPath(), package);
}

// A generation stands in for long work: it must stop before the question about unsaved changes,
// whose answer depends on what the stopped run left in the document.
struct StoppableWork {
    bool running = true;
    int stopRequests = 0;
    std::function<void()> stopped;
    RunningWork hooks() {
        return {[this] { return running; },
                [this](std::function<void()> then) {
                    ++stopRequests;
                    stopped = std::move(then);
                }};
    }
    void finish() {
        running = false;
        if (auto then = std::exchange(stopped, nullptr))
            then();
    }
};

TEST_F(ShellTest, QuitStopsRunningWorkFirstThenAsksAboutWhatItLeft) {
    StoppableWork work;
    delegate.setRunningWork(work.hooks());
    EXPECT_EQ(delegate.applicationShouldTerminate(), TerminateReply::later);
    EXPECT_EQ(work.stopRequests, 1);
    EXPECT_TRUE(platformReplies.empty()) << "no answer while the work still runs";

    // The stopped run left a change: the usual question comes, and its answer goes to the platform.
    state.addImage(image("a.png"));
    dialogs.alertAnswers = {Button::second};
    work.finish();
    ASSERT_EQ(dialogs.alerts.size(), 1u);
    EXPECT_EQ(dialogs.alerts[0].informativeText, "Do you want to save before quitting?");
    EXPECT_EQ(platformReplies, std::vector<bool>{false});
}

TEST_F(ShellTest, QuitAfterRunningWorkOnACleanDocumentRepliesOnceWithoutAsking) {
    StoppableWork work;
    delegate.setRunningWork(work.hooks());
    delegate.applicationShouldTerminate();
    work.finish();
    EXPECT_TRUE(dialogs.alerts.empty());
    EXPECT_EQ(platformReplies, std::vector<bool>{true});

    // Work that no longer runs is not asked to stop again.
    EXPECT_EQ(delegate.applicationShouldTerminate(), TerminateReply::now);
    EXPECT_EQ(work.stopRequests, 1);
}

TEST_F(ShellTest, ClosingTheWindowWaitsForRunningWorkThenClosesItself) {
    StoppableWork work;
    delegate.setRunningWork(work.hooks());
    int closes = 0;
    EXPECT_FALSE(delegate.windowShouldClose([&] { ++closes; }));
    EXPECT_EQ(closes, 0);
    work.finish();
    EXPECT_EQ(closes, 1);
    delegate.clearRunningWork();
    EXPECT_TRUE(delegate.windowShouldClose([] {}));
}

} // namespace
} // namespace lumivesper::shell
