#pragma once

#include "settings/update_channel.h"

#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

namespace lumivesper::server {

// The prompt templates the server hands out: the operator's file, re-read when it changes so that
// templates improve without a restart, or the program's bundled ones. An edit that breaks the
// file is reported and the last good text stays in service.
class PromptSource {
public:
    using Warn = std::function<void(const std::string& message)>;

    // Throws std::runtime_error when the file is missing or not valid templates at start.
    PromptSource(std::optional<std::filesystem::path> file, Warn warn);

    // The text exactly as it is served (the program caches these bytes as they stand).
    std::string text();
    std::string version();

private:
    void reloadIfChanged();

    const std::optional<std::filesystem::path> file_;
    const Warn warn_;
    std::mutex mutex_;
    std::string text_;
    std::string version_;
    std::filesystem::file_time_type loadedWriteTime_{};
};

// The update feeds: "appcast.xml" and "appcast-beta.xml" in the operator's folder, read at each
// request so that publishing a release is copying a file.
class AppcastFeeds {
public:
    explicit AppcastFeeds(std::optional<std::filesystem::path> directory);

    // None when there is no such feed.
    std::optional<std::string> feed(settings::UpdateChannel channel) const;

private:
    const std::optional<std::filesystem::path> directory_;
};

} // namespace lumivesper::server
