#include "generation/prompt_templates.h"

#include "document/json_coding.h"

#include <nlohmann/json.hpp>

namespace lumivesper::generation {

PromptTemplates decodePromptTemplates(const std::string& text) {
    try {
        const auto json = nlohmann::json::parse(text);
        const auto& templates = json.at("templates");
        return {json.at("version").get<std::string>(),
                json.at("updated").get<std::string>(),
                {templates.at("original").get<std::string>(),
                 templates.at("relight").get<std::string>()}};
    } catch (const nlohmann::json::exception& error) {
        throw document::DecodingError(std::string("The prompt templates could not be read: ") +
                                      error.what());
    }
}

PromptError::PromptError(Case kind, long status, const std::string& description)
    : std::runtime_error(description), kind_(kind), status_(status) {}

PromptError PromptError::serverError(long status) {
    return {Case::serverError, status, "Server error: " + std::to_string(status)};
}
PromptError PromptError::invalidURL() {
    return {Case::invalidURL, 0, "Invalid server URL"};
}
PromptError PromptError::invalidResponse() {
    return {Case::invalidResponse, 0, "Invalid response from server"};
}
PromptError PromptError::noBundledPrompts() {
    return {Case::noBundledPrompts, 0, "No bundled prompts available"};
}

std::string render(std::string templateText, const std::map<std::string, std::string>& variables) {
    for (const auto& [name, value] : variables) {
        const std::string placeholder = "{" + name + "}";
        // Continue after the inserted value, so a value holding its own placeholder is kept.
        for (auto at = templateText.find(placeholder); at != std::string::npos;
             at = templateText.find(placeholder, at + value.size()))
            templateText.replace(at, placeholder.size(), value);
    }
    return templateText;
}

} // namespace lumivesper::generation
