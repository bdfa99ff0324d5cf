#include "shell/update_controller.h"
#include "shell/update_flow.h"

#include <gtest/gtest.h>

namespace lumivesper::shell {
namespace {

using settings::UpdateCheckError;
using settings::UpdateCheckKind;
constexpr auto user = UpdateCheckKind::userInitiated;
constexpr auto background = UpdateCheckKind::background;

settings::AppcastItem release(const std::string& displayVersion, const std::string& version) {
    settings::AppcastItem item;
    item.displayVersion = displayVersion;
    item.version = version;
    item.downloadURL = "https://example.test/" + version + ".tar.gz";
    item.releaseNotesURL = "https://example.test/notes/" + version;
    return item;
}

class UpdateFlowTest : public ::testing::Test, public UpdateController {
protected:
    UpdateFlowTest() { flow.setController(this); }

    void checkForUpdates() override { ++checks; }
    void checkForUpdatesInBackground() override {}
    void resetUpdateCycle() override {}
    void cancelCheck() override { ++cancels; }

    std::string channel = "Stable";
    UpdateFlow flow{{"0.4.0", "40"}, [this] { return channel; }};
    int checks = 0;
    int cancels = 0;
};

TEST_F(UpdateFlowTest, ClosingWhileCheckingCancelsAndDropsTheLateAnswer) {
    flow.checkForUpdates();
    flow.checkForUpdates(); // already checking: no second request
    EXPECT_EQ(checks, 1);
    flow.closeDialog();
    EXPECT_EQ(cancels, 1);
    flow.didFindValidUpdate(release("0.5.0", "50"), user);
    EXPECT_EQ(flow.dialogPhase(), UpdateDialogPhase::hidden);
    EXPECT_FALSE(flow.notice());
}

TEST_F(UpdateFlowTest, BackgroundChecksSpeakOnlyOfAnUpdateFound) {
    int changes = 0;
    auto subscription = flow.observe([&] { ++changes; });
    flow.didNotFindUpdate(background);
    flow.didAbortWithError({UpdateCheckError::Kind::feedUnreachable, "offline"}, background);
    EXPECT_EQ(flow.dialogPhase(), UpdateDialogPhase::hidden);
    EXPECT_FALSE(flow.notice());

    flow.didFindValidUpdate(release("0.5.0", "50"), background);
    EXPECT_EQ(flow.dialogPhase(), UpdateDialogPhase::hidden);
    ASSERT_TRUE(flow.notice());
    EXPECT_EQ(flow.noticeText(), "Lumivesper AI 0.5.0 is available.");
    EXPECT_GT(changes, 0);

    flow.didAbortWithError({UpdateCheckError::Kind::feedUnreachable, "offline"}, background);
    EXPECT_TRUE(flow.notice());        // a failure says nothing about the release
    flow.didNotFindUpdate(background); // e.g. back on the stable channel
    EXPECT_FALSE(flow.notice());
}

TEST_F(UpdateFlowTest, NoticeViewedOrDismissed) {
    flow.didFindValidUpdate(release("0.5.0", "50"), background);
    flow.viewNotice();
    EXPECT_FALSE(flow.notice());
    EXPECT_EQ(flow.dialogPhase(), UpdateDialogPhase::updateFound);
    EXPECT_EQ(flow.dialogContent().downloadURL, "https://example.test/50.tar.gz");
    flow.didFindValidUpdate(release("0.5.0", "50"), background); // already on screen
    EXPECT_FALSE(flow.notice());
    flow.closeDialog();
    EXPECT_EQ(checks, 0);

    flow.didFindValidUpdate(release("0.5.0", "50"), background);
    flow.dismissNotice();
    EXPECT_FALSE(flow.notice());
    flow.didFindValidUpdate(release("0.5.0", "50"), background);
    EXPECT_FALSE(flow.notice()); // dismissed for this session
    flow.didFindValidUpdate(release("0.6.0", "60"), background);
    EXPECT_EQ(flow.noticeText(), "Lumivesper AI 0.6.0 is available.");

    flow.checkForUpdates(); // the dialog now tells of it
    flow.didFindValidUpdate(release("0.6.0", "60"), user);
    EXPECT_FALSE(flow.notice());
}

TEST(UpdateFlowWithoutChecker, SaysWhyNothingCanBeChecked) {
    UpdateFlow flow({"0.4.0", "0.4.0"}, {});
    flow.checkForUpdates();
    EXPECT_EQ(flow.dialogPhase(), UpdateDialogPhase::failed);
    EXPECT_EQ(flow.dialogContent().title, "Update Check Failed");
    EXPECT_EQ(versionText("0.4.0", "0.4.0"), "0.4.0");
}

} // namespace
} // namespace lumivesper::shell
