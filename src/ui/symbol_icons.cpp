#include "ui/symbol_icons.h"

#include <QStandardPaths>
#include <QStringList>
#include <string_view>

namespace lumivesper::ui {

namespace {

struct SymbolIcon {
    std::string_view symbol;
    const char* themeName;
};

// Chosen for meaning, not likeness: "internaldrive" stands for saving, so it is the save icon.
constexpr SymbolIcon symbolIcons[] = {
    {"plus", "list-add"},
    {"sparkles", "draw-star"},
    {"wand.and.stars", "tools-wizard"},
    {"folder", "document-open"},
    {"folder.fill", "folder-open"},
    {"internaldrive", "document-save"},
    {"arrow.up.doc", "document-export"},
    {"square.grid.2x2", "view-list-icons"},
    {"list.bullet", "view-list-details"},
    {"photo", "view-preview"},
    {"sidebar.right", "sidebar-expand-right"},
    {"photo.on.rectangle.angled", "folder-pictures"},
    {"tray.and.arrow.down", "document-import"},
    {"plus.circle", "list-add"},
    {"backward.end.fill", "media-skip-backward"},
    {"play.fill", "media-playback-start"},
    {"pause.fill", "media-playback-pause"},
    {"forward.end.fill", "media-skip-forward"},
    {"checkmark.circle.fill", "dialog-positive"},
    {"exclamationmark.triangle", "data-warning"},
    {"exclamationmark.triangle.fill", "emblem-warning"},
    {"gear", "configure"},
    {"arrow.down.circle", "download"},
    {"wrench.and.screwdriver", "tools"},
    {"sun.max", "weather-clear"},
    {"moon.stars", "weather-clear-night"},
    {"cursorarrow", "cursor-arrow"},
    {"location", "find-location"},
};

} // namespace

void installFallbackIconTheme() {
    // Some platform plugins (offscreen, minimal) search no system folder at all.
    QStringList searchPaths = QIcon::themeSearchPaths();
    for (const QString& folder :
         QStandardPaths::locateAll(QStandardPaths::GenericDataLocation, QStringLiteral("icons"),
                                   QStandardPaths::LocateDirectory)) {
        if (!searchPaths.contains(folder))
            searchPaths << folder;
    }
    QIcon::setThemeSearchPaths(searchPaths);
    QIcon::setFallbackThemeName(QString::fromLatin1(fallbackIconTheme));
    // Without a desktop session Qt has no theme at all; the fallback then is the theme.
    if (QIcon::themeName().isEmpty() || QIcon::themeName() == QLatin1String("hicolor"))
        QIcon::setThemeName(QString::fromLatin1(fallbackIconTheme));
}

QString themeIconName(const std::string& symbol) {
    for (const auto& entry : symbolIcons) {
        if (entry.symbol == symbol)
            return QString::fromLatin1(entry.themeName);
    }
    return {};
}

QIcon symbolIcon(const std::string& symbol) {
    const QString name = themeIconName(symbol);
    return name.isEmpty() ? QIcon() : QIcon::fromTheme(name);
}

} // namespace lumivesper::ui
