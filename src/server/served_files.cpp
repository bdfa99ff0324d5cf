#include "server/served_files.h"

#include "generation/bundled_resources.h"
#include "generation/prompt_templates.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace lumivesper::server {

namespace {

std::optional<std::string> fileText(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return std::nullopt;
    std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (file.bad())
        return std::nullopt;
    return text;
}

} // namespace

PromptSource::PromptSource(std::optional<std::filesystem::path> file, Warn warn)
    : file_(std::move(file)), warn_(std::move(warn)) {
    if (!file_) {
        text_ = generation::bundledDefaultPrompts().value_or(
            std::string(generation::embeddedDefaultPrompts()));
        version_ = generation::decodePromptTemplates(text_).version;
        return;
    }
    std::error_code error;
    loadedWriteTime_ = std::filesystem::last_write_time(*file_, error);
    const auto text = fileText(*file_);
    if (error || !text)
        throw std::runtime_error("Cannot read the prompts file " + file_->string());
    try {
        version_ = generation::decodePromptTemplates(*text).version;
    } catch (const std::exception& failure) {
        throw std::runtime_error(file_->string() + ": " + failure.what());
    }
    text_ = *text;
}

void PromptSource::reloadIfChanged() {
    if (!file_)
        return;
    std::error_code error;
    const auto writeTime = std::filesystem::last_write_time(*file_, error);
    if (error || writeTime == loadedWriteTime_)
        return;
    loadedWriteTime_ = writeTime; // a broken edit is reported once, not at every request
    const auto text = fileText(*file_);
    try {
        if (!text)
            throw std::runtime_error("cannot read it");
        version_ = generation::decodePromptTemplates(*text).version;
        text_ = *text;
    } catch (const std::exception& failure) {
        warn_("The prompts file " + file_->string() + " was changed and is not usable (" +
              failure.what() + "); still serving version " + version_);
    }
}

std::string PromptSource::text() {
    std::lock_guard guard(mutex_);
    reloadIfChanged();
    return text_;
}

std::string PromptSource::version() {
    std::lock_guard guard(mutex_);
    reloadIfChanged();
    return version_;
}

AppcastFeeds::AppcastFeeds(std::optional<std::filesystem::path> directory)
    : directory_(std::move(directory)) {}

std::optional<std::string> AppcastFeeds::feed(settings::UpdateChannel channel) const {
    if (!directory_)
        return std::nullopt;
    const std::filesystem::path name =
        std::filesystem::path(settings::feedPath(channel)).filename();
    return fileText(*directory_ / name);
}

} // namespace lumivesper::server
