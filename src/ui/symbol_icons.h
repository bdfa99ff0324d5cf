#pragma once

#include <QIcon>
#include <QString>

#include <string>

namespace lumivesper::ui {

// The icon theme the application ships with as a dependency; it fills in whatever the desktop's
// own theme lacks, so that a fresh machine shows every icon.
inline constexpr const char* fallbackIconTheme = "breeze";

// Makes the fallback theme known to Qt. Call once, after the application object exists.
void installFallbackIconTheme();

// The freedesktop icon name of like meaning for a symbol name of the command center ("plus",
// "folder.fill", ...); empty for a symbol without one.
QString themeIconName(const std::string& symbol);
QIcon symbolIcon(const std::string& symbol);

} // namespace lumivesper::ui
