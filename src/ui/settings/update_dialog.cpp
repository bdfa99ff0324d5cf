#include "ui/settings/update_dialog.h"

#include "shell/update_flow.h"
#include "ui/qt_text.h"
#include "ui/symbol_icons.h"

#include <QApplication>
#include <QDesktopServices>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>

namespace lumivesper::ui {

namespace {

using shell::UpdateDialogPhase;

constexpr int iconSize = 48;

QIcon phaseIcon(UpdateDialogPhase phase) {
    switch (phase) {
    case UpdateDialogPhase::upToDate:
        return symbolIcon("checkmark.circle.fill");
    case UpdateDialogPhase::failed:
        return symbolIcon("exclamationmark.triangle");
    default:
        return QApplication::windowIcon();
    }
}

} // namespace

UpdateDialog::UpdateDialog(shell::UpdateFlow& flow, QWidget* parent)
    : QDialog(parent), flow_(flow) {
    setObjectName(QStringLiteral("updateDialog"));
    setWindowTitle(QStringLiteral("Software Update"));
    setMinimumWidth(460);

    icon_ = new QLabel(this);
    icon_->setFixedSize(iconSize, iconSize);
    title_ = new QLabel(this);
    title_->setObjectName(QStringLiteral("updateTitle"));
    QFont bold = title_->font();
    bold.setBold(true);
    bold.setPointSizeF(bold.pointSizeF() * 1.15);
    title_->setFont(bold);
    title_->setWordWrap(true);
    message_ = new QLabel(this);
    message_->setObjectName(QStringLiteral("updateMessage"));
    message_->setWordWrap(true);
    message_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    releaseNotes_ = new QLabel(this);
    releaseNotes_->setObjectName(QStringLiteral("releaseNotesLink"));
    releaseNotes_->setAccessibleName(QStringLiteral("Release Notes"));
    releaseNotes_->setTextFormat(Qt::RichText);
    releaseNotes_->setTextInteractionFlags(Qt::TextBrowserInteraction);
    releaseNotes_->setOpenExternalLinks(true);
    busy_ = new QProgressBar(this);
    busy_->setRange(0, 0); // no measure of how far a request has come: just busy
    busy_->setTextVisible(false);
    busy_->setAccessibleName(QStringLiteral("Checking for updates"));

    auto* text = new QVBoxLayout;
    text->addWidget(title_);
    text->addWidget(message_);
    text->addWidget(releaseNotes_);
    text->addWidget(busy_);
    text->addStretch(1);
    auto* row = new QHBoxLayout;
    row->setSpacing(16);
    row->addWidget(icon_, 0, Qt::AlignTop);
    row->addLayout(text, 1);

    buttons_ = new QDialogButtonBox(this);
    download_ = buttons_->addButton(QStringLiteral("Download"), QDialogButtonBox::AcceptRole);
    tryAgain_ = buttons_->addButton(QStringLiteral("Try Again"), QDialogButtonBox::ActionRole);
    close_ = buttons_->addButton(QStringLiteral("Close"), QDialogButtonBox::RejectRole);
    connect(download_, &QPushButton::clicked, this, [this] {
        if (const auto url = flow_.dialogContent().downloadURL)
            QDesktopServices::openUrl(QUrl(toQString(*url)));
    });
    connect(tryAgain_, &QPushButton::clicked, this, [this] { flow_.checkForUpdates(); });
    connect(buttons_, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons_, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto* column = new QVBoxLayout(this);
    column->addLayout(row, 1);
    column->addWidget(buttons_);

    flowChanges_ = flow_.observe([this] { refresh(); });
    refresh();
}

UpdateDialog::~UpdateDialog() = default;

void UpdateDialog::done(int result) {
    QDialog::done(result);
    flow_.closeDialog();
}

void UpdateDialog::refresh() {
    const UpdateDialogPhase phase = flow_.dialogPhase();
    if (phase == UpdateDialogPhase::hidden) {
        if (isVisible())
            close();
        return;
    }
    const shell::UpdateDialogContent content = flow_.dialogContent();
    icon_->setPixmap(phaseIcon(phase).pixmap(iconSize, iconSize));
    title_->setText(toQString(content.title));
    message_->setText(toQString(content.message));
    releaseNotes_->setVisible(content.releaseNotesURL.has_value());
    if (content.releaseNotesURL) {
        const QString url = toQString(*content.releaseNotesURL).toHtmlEscaped();
        releaseNotes_->setText(QStringLiteral("<a href=\"%1\">Release Notes</a>").arg(url));
        releaseNotes_->setToolTip(toQString(*content.releaseNotesURL));
    }
    busy_->setVisible(phase == UpdateDialogPhase::checking);

    const bool canDownload =
        phase == UpdateDialogPhase::updateFound && content.downloadURL.has_value();
    download_->setVisible(canDownload);
    tryAgain_->setVisible(phase == UpdateDialogPhase::failed);
    switch (phase) {
    case UpdateDialogPhase::checking:
        close_->setText(QStringLiteral("Cancel"));
        break;
    case UpdateDialogPhase::updateFound:
        close_->setText(canDownload ? QStringLiteral("Later") : QStringLiteral("Close"));
        break;
    case UpdateDialogPhase::upToDate:
        close_->setText(QStringLiteral("OK"));
        break;
    default:
        close_->setText(QStringLiteral("Close"));
        break;
    }
    download_->setDefault(canDownload);
    close_->setDefault(!canDownload);
    (canDownload ? download_ : close_)->setFocus();
    setAccessibleName(title_->text());
    adjustSize(); // each phase has its own amount of text
}

} // namespace lumivesper::ui
