#include "ui/qt_text.h"

#include <QFile>

namespace lumivesper::ui {

QString toQString(const std::string& text) {
    return QString::fromStdString(text);
}

// Paths are byte strings on Linux; decode them as the file system does, so that a name that is
// not valid UTF-8 survives the round trip through a panel or a command line.
QString toQString(const std::filesystem::path& path) {
    return QFile::decodeName(QByteArray::fromStdString(path.native()));
}

std::string toStdString(const QString& text) {
    return text.toStdString();
}

std::filesystem::path toPath(const QString& path) {
    return std::filesystem::path(QFile::encodeName(path).toStdString());
}

} // namespace lumivesper::ui
