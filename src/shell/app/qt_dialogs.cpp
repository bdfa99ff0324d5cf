#include "shell/app/qt_dialogs.h"

#include "ui/qt_text.h"

#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

namespace lumivesper::shell {

namespace {

using ui::toPath;
using ui::toQString;

QString nameFilter(const platform::FileFilter& filter) {
    QStringList patterns;
    for (const auto& extension : filter.extensions) {
        patterns << QStringLiteral("*.") + toQString(extension).toLower()
                 << QStringLiteral("*.") + toQString(extension).toUpper();
    }
    return toQString(filter.name) + QStringLiteral(" (") + patterns.join(QLatin1Char(' ')) +
           QLatin1Char(')');
}

bool isPackage(const QString& path, const std::vector<std::string>& extensions) {
    const QString suffix = QFileInfo(path).suffix();
    for (const auto& extension : extensions) {
        if (suffix.compare(toQString(extension), Qt::CaseInsensitive) == 0)
            return true;
    }
    return false;
}

void startIn(QFileDialog& dialog, const std::optional<std::filesystem::path>& directory) {
    // A folder that has gone leaves the choice to the dialog.
    if (directory && QFileInfo(toQString(*directory)).isDir())
        dialog.setDirectory(toQString(*directory));
}

// Entering a package folder (double click, or typing its name) picks it instead of opening it.
void pickPackagesOnEntry(QFileDialog& dialog, QString& picked,
                         const std::vector<std::string>& extensions) {
    QObject::connect(&dialog, &QFileDialog::directoryEntered, &dialog,
                     [&dialog, &picked, extensions](const QString& path) {
                         if (!isPackage(path, extensions))
                             return;
                         picked = path;
                         static_cast<QDialog&>(dialog).done(QDialog::Accepted);
                     });
}

QMessageBox::ButtonRole roleOf(const std::string& title, std::size_t index) {
    if (title == "Cancel")
        return QMessageBox::RejectRole;
    return index == 0 ? QMessageBox::AcceptRole : QMessageBox::DestructiveRole;
}

} // namespace

std::size_t QtDialogs::runAlert(const platform::Alert& alert) {
    QMessageBox box(window_);
    box.setWindowModality(window_ ? Qt::WindowModal : Qt::ApplicationModal);
    box.setIcon(alert.style == platform::AlertStyle::critical        ? QMessageBox::Critical
                : alert.style == platform::AlertStyle::informational ? QMessageBox::Information
                                                                     : QMessageBox::Warning);
    box.setText(toQString(alert.message));
    box.setInformativeText(toQString(alert.informativeText));
    const std::vector<std::string> titles =
        alert.buttons.empty() ? std::vector<std::string>{"OK"} : alert.buttons;
    std::vector<QPushButton*> buttons;
    for (std::size_t index = 0; index < titles.size(); ++index) {
        // "Save & Quit" shows its ampersand rather than underlining the Q.
        const QString text =
            toQString(titles[index]).replace(QLatin1Char('&'), QStringLiteral("&&"));
        QPushButton* button = box.addButton(text, roleOf(titles[index], index));
        button->setAccessibleName(toQString(titles[index]));
        buttons.push_back(button);
        if (titles[index] == "Cancel" || titles.size() == 1)
            box.setEscapeButton(button);
    }
    box.setDefaultButton(buttons.front());
    box.exec();
    for (std::size_t index = 0; index < buttons.size(); ++index) {
        if (box.clickedButton() == buttons[index])
            return index;
    }
    return 0;
}

std::vector<std::filesystem::path>
QtDialogs::runOpenPanel(const platform::OpenPanelSettings& settings) {
    QFileDialog dialog(window_);
    dialog.setAcceptMode(QFileDialog::AcceptOpen);
    startIn(dialog, settings.directory);
    QString picked;
    const bool packages =
        !settings.packageExtensions.empty() && !settings.treatsFilePackagesAsDirectories;
    if (packages) {
        // Our own dialog: a desktop's native one cannot pick a folder by double click.
        dialog.setOption(QFileDialog::DontUseNativeDialog);
        dialog.setWindowTitle(QStringLiteral("Open Project"));
        dialog.setFileMode(QFileDialog::Directory);
        pickPackagesOnEntry(dialog, picked, settings.packageExtensions);
    } else {
        dialog.setWindowTitle(QStringLiteral("Open"));
        dialog.setFileMode(settings.canChooseDirectories      ? QFileDialog::Directory
                           : settings.allowsMultipleSelection ? QFileDialog::ExistingFiles
                                                              : QFileDialog::ExistingFile);
        if (settings.filter)
            dialog.setNameFilter(nameFilter(*settings.filter));
    }
    if (dialog.exec() != QDialog::Accepted)
        return {};
    const QStringList chosen = picked.isEmpty() ? dialog.selectedFiles() : QStringList{picked};
    std::vector<std::filesystem::path> paths;
    for (const QString& path : chosen)
        paths.push_back(toPath(path));
    return paths;
}

std::optional<std::filesystem::path>
QtDialogs::runSavePanel(const platform::SavePanelSettings& settings) {
    QFileDialog dialog(window_,
                       settings.title.empty() ? QStringLiteral("Save") : toQString(settings.title));
    dialog.setOption(QFileDialog::DontUseNativeDialog);
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setFileMode(QFileDialog::AnyFile);
    startIn(dialog, settings.directory);
    QString picked;
    if (settings.filter) {
        dialog.setNameFilter(nameFilter(*settings.filter));
        if (!settings.filter->extensions.empty())
            dialog.setDefaultSuffix(toQString(settings.filter->extensions.front()));
        pickPackagesOnEntry(dialog, picked, settings.filter->extensions);
    }
    dialog.selectFile(toQString(settings.nameFieldStringValue));
    if (dialog.exec() != QDialog::Accepted)
        return std::nullopt;
    if (!picked.isEmpty())
        return toPath(picked);
    const QStringList chosen = dialog.selectedFiles();
    if (chosen.isEmpty())
        return std::nullopt;
    return toPath(chosen.front());
}

void QtDialogs::runLater(std::chrono::milliseconds delay, std::function<void()> work) {
    QTimer::singleShot(delay, &context_, [work = std::move(work)] { work(); });
}

} // namespace lumivesper::shell
