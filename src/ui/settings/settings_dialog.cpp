#include "ui/settings/settings_dialog.h"

#include "settings/app_settings.h"
#include "ui/qt_text.h"
#include "ui/sheet_labels.h"
#include "ui/symbol_icons.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QFontDatabase>
#include <QFrame>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QTabWidget>
#include <QVBoxLayout>

namespace lumivesper::ui {

namespace {

constexpr int labelWidth = 100;

QLabel* secondary(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    label->setForegroundRole(QPalette::PlaceholderText);
    label->setFixedWidth(labelWidth);
    return label;
}

// The version strings compiled in; a build without them shows "Unknown".
QString compiled(const char* value) {
    return value && *value ? QString::fromUtf8(value) : QStringLiteral("Unknown");
}

} // namespace

SettingsDialog::SettingsDialog(settings::AppSettings& settings, QWidget* parent)
    : QDialog(parent), settings_(settings) {
    setObjectName(QStringLiteral("settingsDialog"));
    setWindowTitle(QStringLiteral("Settings"));
    setFixedSize(500, 350);
    auto* column = new QVBoxLayout(this);
    tabs_ = new QTabWidget(this);
    tabs_->addTab(makeGeneral(), symbolIcon("gear"), QStringLiteral("General"));
    tabs_->addTab(makeUpdates(), symbolIcon("arrow.down.circle"), QStringLiteral("Updates"));
    tabs_->addTab(makeAdvanced(), symbolIcon("wrench.and.screwdriver"), QStringLiteral("Advanced"));
    column->addWidget(tabs_);
    settingsChanges_ = settings_.observe([this] { refresh(); });
    refresh();
}

SettingsDialog::~SettingsDialog() = default;

void SettingsDialog::showTab(Tab tab) {
    tabs_->setCurrentIndex(static_cast<int>(tab));
}

QWidget* SettingsDialog::makeGeneral() {
    auto* page = new QWidget(this);
    auto* column = new QVBoxLayout(page);
    column->addWidget(headline(QStringLiteral("Application Settings"), page));
    column->addWidget(caption(QStringLiteral("Lumivesper creates dynamic wallpapers for Linux "
                                             "using solar position data and AI-generated images."),
                              page));
    auto* divider = new QFrame(page);
    divider->setFrameShape(QFrame::HLine);
    divider->setFrameShadow(QFrame::Sunken);
    column->addWidget(divider);
    auto* rows = new QGridLayout;
    rows->addWidget(secondary(QStringLiteral("Version:"), page), 0, 0);
    rows->addWidget(new QLabel(compiled(LUMIVESPER_VERSION), page), 0, 1);
    rows->addWidget(secondary(QStringLiteral("Build:"), page), 1, 0);
    rows->addWidget(new QLabel(compiled(LUMIVESPER_BUILD_NUMBER), page), 1, 1);
    rows->setColumnStretch(1, 1);
    column->addLayout(rows);
    column->addStretch(1);
    return page;
}

QWidget* SettingsDialog::makeUpdates() {
    auto* page = new QWidget(this);
    auto* column = new QVBoxLayout(page);
    column->addWidget(headline(QStringLiteral("Update Channel"), page));
    auto* group = new QGridLayout;
    group->addWidget(new QLabel(QStringLiteral("Channel:"), page), 0, 0, Qt::AlignTop);
    channels_ = new QButtonGroup(page);
    int row = 0;
    for (const auto channel : settings::allUpdateChannels) {
        auto* choice = new QRadioButton(toQString(std::string(settings::label(channel))), page);
        channels_->addButton(choice, static_cast<int>(channel));
        auto* description =
            caption(toQString(std::string(settings::channelDescription(channel))), page);
        description->setContentsMargins(22, 0, 0, 0); // under the label, past the radio button
        group->addWidget(choice, row++, 1);
        group->addWidget(description, row++, 1);
    }
    group->setColumnStretch(1, 1);
    column->addLayout(group);
    column->addWidget(caption(QStringLiteral("Choose how frequently you want to receive updates. "
                                             "Beta releases may contain new features but could "
                                             "be less stable."),
                              page));
    column->addStretch(1);
    connect(channels_, &QButtonGroup::idClicked, this, [this](int id) {
        settings_.setUpdateChannel(static_cast<settings::UpdateChannel>(id));
    });
    return page;
}

QWidget* SettingsDialog::makeAdvanced() {
    auto* page = new QWidget(this);
    auto* column = new QVBoxLayout(page);
    column->addWidget(headline(QStringLiteral("Server Configuration"), page));
    useCustomServer_ = new QCheckBox(QStringLiteral("Use custom server"), page);
    column->addWidget(useCustomServer_);

    customServerRow_ = new QWidget(page);
    auto* serverColumn = new QVBoxLayout(customServerRow_);
    serverColumn->setContentsMargins(0, 0, 0, 0);
    auto* line = new QHBoxLayout;
    auto* urlLabel = new QLabel(QStringLiteral("Server URL:"), customServerRow_);
    urlLabel->setFixedWidth(labelWidth);
    customServerURL_ = new QLineEdit(customServerRow_);
    customServerURL_->setObjectName(QStringLiteral("customServerURL"));
    customServerURL_->setPlaceholderText(QStringLiteral("https://..."));
    customServerURL_->setAccessibleName(QStringLiteral("Server URL"));
    line->addWidget(urlLabel);
    line->addWidget(customServerURL_, 1);
    serverColumn->addLayout(line);
    auto* warning = caption(QStringLiteral("Warning: Only change this if you know what you're "
                                           "doing. Invalid URLs may cause the app to malfunction."),
                            customServerRow_);
    QPalette orange = warning->palette();
    orange.setColor(QPalette::WindowText, QColor(255, 149, 0));
    warning->setPalette(orange);
    warning->setForegroundRole(QPalette::WindowText);
    serverColumn->addWidget(warning);
    column->addWidget(customServerRow_);

    auto* current = new QHBoxLayout;
    auto* currentLabel = new QLabel(QStringLiteral("Current server:"), page);
    currentLabel->setForegroundRole(QPalette::PlaceholderText);
    currentServer_ = new QLabel(page);
    currentServer_->setObjectName(QStringLiteral("currentServer"));
    QFont mono = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    mono.setPointSizeF(currentServer_->font().pointSizeF() * 0.9);
    currentServer_->setFont(mono);
    currentServer_->setForegroundRole(QPalette::PlaceholderText);
    currentServer_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    current->addWidget(currentLabel);
    current->addWidget(currentServer_, 1);
    column->addLayout(current);

    auto* reset = new QPushButton(QStringLiteral("Reset to Defaults"), page);
    column->addWidget(reset, 0, Qt::AlignLeft);
    column->addStretch(1);

    connect(useCustomServer_, &QCheckBox::toggled, this, [this](bool on) {
        settings_.setUseCustomServer(on);
        if (on)
            customServerURL_->setFocus(); // the switch is turned on to type an address
    });
    connect(customServerURL_, &QLineEdit::textEdited, this,
            [this](const QString& text) { settings_.setCustomServerURL(toStdString(text)); });
    connect(reset, &QPushButton::clicked, this, [this] { settings_.resetToDefaults(); });
    return page;
}

void SettingsDialog::refresh() {
    if (QAbstractButton* chosen = channels_->button(static_cast<int>(settings_.updateChannel())))
        chosen->setChecked(true);
    {
        const QSignalBlocker quiet(useCustomServer_);
        useCustomServer_->setChecked(settings_.useCustomServer());
    }
    customServerRow_->setVisible(settings_.useCustomServer());
    const QString url = toQString(settings_.customServerURL());
    if (customServerURL_->text() != url)
        customServerURL_->setText(url); // only from outside: typing keeps its cursor
    currentServer_->setText(toQString(settings_.effectiveServerURL()));
}

} // namespace lumivesper::ui
