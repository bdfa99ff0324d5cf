#include "ui/wallpaper/job_progress_dialog.h"

#include "ui/qt_text.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

namespace lumivesper::ui {

JobProgressDialog::JobProgressDialog(const QString& title, std::function<void()> cancel,
                                     QWidget* parent)
    : QDialog(parent), cancel_(std::move(cancel)) {
    setWindowTitle(title);
    setModal(true);
    setMinimumWidth(420);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(20, 20, 20, 16);
    column->setSpacing(10);

    auto* heading = new QLabel(title, this);
    QFont bold = heading->font();
    bold.setBold(true);
    heading->setFont(bold);
    heading->setWordWrap(true);
    column->addWidget(heading);

    bar_ = new QProgressBar(this);
    bar_->setRange(0, 0); // busy until the first step is known
    bar_->setTextVisible(false);
    bar_->setAccessibleName(QStringLiteral("Progress"));
    column->addWidget(bar_);

    message_ = new QLabel(QStringLiteral("Starting\u2026"), this);
    message_->setAccessibleName(QStringLiteral("Current step"));
    message_->setEnabled(false); // the palette's quiet colour
    column->addWidget(message_);

    auto* buttons = new QDialogButtonBox(this);
    cancelButton_ = buttons->addButton(QDialogButtonBox::Cancel);
    cancelButton_->setAccessibleName(QStringLiteral("Cancel"));
    connect(cancelButton_, &QPushButton::clicked, this, &JobProgressDialog::reject);
    column->addWidget(buttons);
}

void JobProgressDialog::setProgress(int current, int total, const QString& message) {
    if (total > 0) {
        bar_->setRange(0, total);
        bar_->setValue(current);
    }
    if (cancelButton_->isEnabled()) // after Cancel, the stop is what the user needs to read
        message_->setText(message);
}

void JobProgressDialog::reject() {
    if (!cancelButton_->isEnabled())
        return;
    cancelButton_->setEnabled(false);
    message_->setText(QStringLiteral("Stopping\u2026"));
    if (cancel_)
        cancel_();
}

WindowJobProgress::~WindowJobProgress() {
    delete dialog_.data();
}

void WindowJobProgress::show(const std::string& title, std::function<void()> cancel) {
    hide();
    dialog_ =
        new JobProgressDialog(toQString(title), std::move(cancel), window_ ? window_() : nullptr);
    // Work that ends at once leaves no dialog flashing by; the commands refuse to start twice
    // meanwhile.
    QTimer::singleShot(shownAfter, dialog_.data(), &QDialog::open);
}

void WindowJobProgress::update(int current, int total, const std::string& message) {
    if (dialog_)
        dialog_->setProgress(current, total, toQString(message));
}

void WindowJobProgress::hide() {
    if (!dialog_)
        return;
    dialog_->hide();
    dialog_->deleteLater();
    dialog_.clear();
}

} // namespace lumivesper::ui
