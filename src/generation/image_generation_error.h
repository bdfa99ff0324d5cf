#pragma once

#include <stdexcept>
#include <string>

namespace lumivesper::generation {

// A failure of a direct provider client; what() is the user-facing description.
class ImageGenerationError : public std::runtime_error {
public:
    enum class Case { requestFailed, missingAPIKey, invalidResponse, decodeFailed };

    static ImageGenerationError requestFailed(std::string message);
    static ImageGenerationError missingAPIKey();
    static ImageGenerationError invalidResponse();
    static ImageGenerationError decodeFailed();

    Case kind() const { return kind_; }
    // The text of requestFailed; empty for the other cases.
    const std::string& message() const { return message_; }
    std::string description() const { return what(); }

private:
    ImageGenerationError(Case kind, std::string message, const std::string& description);

    Case kind_;
    std::string message_;
};

} // namespace lumivesper::generation
