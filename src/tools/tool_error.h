#pragma once

#include <cstdint>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace lumivesper::tools {

// Every failure of the tool layer, with the text a user sees and what they can do about it.
class ToolError : public std::runtime_error {
public:
    enum class Kind {
        insufficientDiskSpace,
        downloadFailed,
        extractionFailed,
        verificationFailed,
        modelsUnavailable,
        allTileSizesFailed,
        invalidState,
        installationFailed,
        executableNotFound,
        networkUnavailable,
        toolsDirectoryUnavailable,
    };

    static ToolError insufficientDiskSpace(std::int64_t required, std::int64_t available);
    static ToolError downloadFailed(std::optional<int> statusCode,
                                    std::exception_ptr underlyingError = nullptr);
    static ToolError extractionFailed(std::exception_ptr underlyingError);
    static ToolError verificationFailed(std::vector<std::string> problems);
    static ToolError modelsUnavailable(std::vector<std::string> missingModels);
    static ToolError allTileSizesFailed(std::string attempts);
    static ToolError invalidState(std::string text);
    static ToolError installationFailed(std::string text);
    static ToolError executableNotFound();
    static ToolError networkUnavailable();
    static ToolError toolsDirectoryUnavailable();

    Kind kind() const { return kind_; }
    std::string description() const { return what(); }
    std::string recoverySuggestion() const;

    // Payloads; each is meaningful only for the kinds that carry it.
    std::int64_t required() const { return required_; }
    std::int64_t available() const { return available_; }
    std::optional<int> statusCode() const { return statusCode_; }
    std::exception_ptr underlyingError() const { return underlyingError_; }
    const std::vector<std::string>& items() const { return items_; }
    const std::string& text() const { return text_; }

private:
    ToolError(Kind kind, const std::string& description);

    Kind kind_;
    std::int64_t required_ = 0;
    std::int64_t available_ = 0;
    std::optional<int> statusCode_;
    std::exception_ptr underlyingError_;
    std::vector<std::string> items_;
    std::string text_;
};

// The message of whatever `error` holds, for logs; empty for none.
std::string describeError(std::exception_ptr error);

} // namespace lumivesper::tools
