#include "tools/tool_error.h"

#include "platform/paths.h"

#include <cstdlib>
#include <utility>

namespace lumivesper::tools {

namespace {

// Decimal megabytes, truncated: 52,428,800 bytes read as 52.
std::string megabytes(std::int64_t bytes) {
    return std::to_string(bytes / 1'000'000);
}

std::string joined(const std::vector<std::string>& items, const std::string& separator) {
    std::string text;
    for (std::size_t index = 0; index < items.size(); ++index) {
        if (index > 0)
            text += separator;
        text += items[index];
    }
    return text;
}

// The tools folder as the user would type it, with their home folder shortened to "~".
std::string toolsFolderForUser() {
    std::string folder = (platform::dataHome() / "Lumivesper AI" / "tools").string();
    if (const char* home = std::getenv("HOME"); home && *home) {
        std::string prefix = home;
        if (!prefix.ends_with('/'))
            prefix += '/';
        if (folder.starts_with(prefix))
            return "~/" + folder.substr(prefix.size());
    }
    return folder;
}

} // namespace

ToolError::ToolError(Kind kind, const std::string& description)
    : std::runtime_error(description), kind_(kind) {}

ToolError ToolError::insufficientDiskSpace(std::int64_t required, std::int64_t available) {
    ToolError error(Kind::insufficientDiskSpace, "Not enough disk space. Need " +
                                                     megabytes(required) + "MB, but only " +
                                                     megabytes(available) + "MB available.");
    error.required_ = required;
    error.available_ = available;
    return error;
}

ToolError ToolError::downloadFailed(std::optional<int> statusCode,
                                    std::exception_ptr underlyingError) {
    ToolError error(Kind::downloadFailed,
                    statusCode ? "Download failed (HTTP " + std::to_string(*statusCode) +
                                     "). Check your internet connection."
                               : std::string("Download failed. Check your internet connection."));
    error.statusCode_ = statusCode;
    error.underlyingError_ = std::move(underlyingError);
    return error;
}

ToolError ToolError::extractionFailed(std::exception_ptr underlyingError) {
    ToolError error(Kind::extractionFailed,
                    "Failed to extract AI tools. Archive may be corrupted.");
    error.underlyingError_ = std::move(underlyingError);
    return error;
}

ToolError ToolError::verificationFailed(std::vector<std::string> problems) {
    ToolError error(Kind::verificationFailed,
                    "Installation verification failed:\n" + joined(problems, "\n"));
    error.items_ = std::move(problems);
    return error;
}

ToolError ToolError::modelsUnavailable(std::vector<std::string> missingModels) {
    ToolError error(Kind::modelsUnavailable,
                    "Missing required AI models: " + joined(missingModels, ", "));
    error.items_ = std::move(missingModels);
    return error;
}

ToolError ToolError::allTileSizesFailed(std::string attempts) {
    ToolError error(Kind::allTileSizesFailed, "Upscaling failed with all tile sizes:\n" + attempts +
                                                  "\n\nTry reducing image resolution.");
    error.text_ = std::move(attempts);
    return error;
}

ToolError ToolError::invalidState(std::string text) {
    ToolError error(Kind::invalidState, "Invalid tool state: " + text);
    error.text_ = std::move(text);
    return error;
}

ToolError ToolError::installationFailed(std::string text) {
    ToolError error(Kind::installationFailed, "Installation failed: " + text);
    error.text_ = std::move(text);
    return error;
}

ToolError ToolError::executableNotFound() {
    return ToolError(Kind::executableNotFound,
                     "AI upscaler executable not found after installation.");
}

ToolError ToolError::networkUnavailable() {
    return ToolError(Kind::networkUnavailable,
                     "No internet connection. AI upscaling requires a one-time download (~52MB).");
}

ToolError ToolError::toolsDirectoryUnavailable() {
    return ToolError(Kind::toolsDirectoryUnavailable, "Unable to access tools directory.");
}

std::string ToolError::recoverySuggestion() const {
    switch (kind_) {
    case Kind::insufficientDiskSpace:
        return "Free up disk space and try again.";
    case Kind::downloadFailed:
    case Kind::networkUnavailable:
        return "Check your internet connection and retry.";
    case Kind::extractionFailed:
    case Kind::verificationFailed:
        return "Delete the installation folder and try again.";
    case Kind::modelsUnavailable:
        return "Required model files are missing. Try reinstalling.";
    case Kind::allTileSizesFailed:
        return "Your GPU may not have enough memory. Try exporting at a lower resolution.";
    case Kind::invalidState:
    case Kind::installationFailed:
        return "Try deleting " + toolsFolderForUser() + " and reinstalling.";
    case Kind::executableNotFound:
        return "Try reinstalling the AI tools.";
    case Kind::toolsDirectoryUnavailable:
        return "Check application permissions.";
    }
    return {};
}

std::string describeError(std::exception_ptr error) {
    if (!error)
        return {};
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& caught) {
        return caught.what();
    } catch (...) {
        return "unknown error";
    }
}

} // namespace lumivesper::tools
