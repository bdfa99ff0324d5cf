#pragma once

#include <QString>

#include <filesystem>
#include <string>

// The one place where the core's UTF-8 strings and paths meet Qt's strings.
namespace lumivesper::ui {

QString toQString(const std::string& text);
QString toQString(const std::filesystem::path& path);
std::string toStdString(const QString& text);
std::filesystem::path toPath(const QString& path);

} // namespace lumivesper::ui
