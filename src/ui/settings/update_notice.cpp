#include "ui/settings/update_notice.h"

#include "shell/update_flow.h"
#include "ui/qt_text.h"
#include "ui/symbol_icons.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>

namespace lumivesper::ui {

UpdateNotice::UpdateNotice(shell::UpdateFlow& flow, QWidget* parent) : QFrame(parent), flow_(flow) {
    setObjectName(QStringLiteral("updateNotice"));
    setAccessibleName(QStringLiteral("Update available"));
    setFrameShape(QFrame::StyledPanel);
    setAutoFillBackground(true);
    setBackgroundRole(QPalette::AlternateBase);

    auto* icon = new QLabel(this);
    icon->setPixmap(symbolIcon("arrow.down.circle").pixmap(20, 20));
    text_ = new QLabel(this);
    text_->setObjectName(QStringLiteral("updateNoticeText"));
    auto* view = new QPushButton(QStringLiteral("View"), this);
    auto* dismiss = new QPushButton(QStringLiteral("Dismiss"), this);
    dismiss->setFlat(true);

    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(12, 6, 8, 6);
    row->addWidget(icon);
    row->addWidget(text_, 1);
    row->addWidget(view);
    row->addWidget(dismiss);

    connect(view, &QPushButton::clicked, this, [this] { flow_.viewNotice(); });
    connect(dismiss, &QPushButton::clicked, this, [this] { flow_.dismissNotice(); });
    flowChanges_ = flow_.observe([this] { refresh(); });
    refresh();
}

UpdateNotice::~UpdateNotice() = default;

void UpdateNotice::refresh() {
    text_->setText(toQString(flow_.noticeText()));
    setVisible(flow_.notice().has_value());
}

} // namespace lumivesper::ui
