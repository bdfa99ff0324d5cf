#pragma once

#include <map>
#include <optional>
#include <stdexcept>
#include <string>

namespace lumivesper::generation {

// The two templates of the timeline generator, as the server and the bundled file give them.
struct PromptTemplates {
    struct Templates {
        std::string original; // the base frame; variable userPrompt
        std::string relight;  // each relit phase; variable phaseDescription
        bool operator==(const Templates&) const = default;
    };

    std::string version; // shown in log lines
    std::string updated; // kept, never interpreted
    Templates templates;

    bool operator==(const PromptTemplates&) const = default;
};

// All keys are required; throws document::DecodingError naming what is wrong.
PromptTemplates decodePromptTemplates(const std::string& text);

class PromptError : public std::runtime_error {
public:
    enum class Case { serverError, invalidURL, invalidResponse, noBundledPrompts };

    static PromptError serverError(long status);
    static PromptError invalidURL();
    static PromptError invalidResponse();
    static PromptError noBundledPrompts();

    Case kind() const { return kind_; }
    long status() const { return status_; }
    std::string description() const { return what(); }

private:
    PromptError(Case kind, long status, const std::string& description);

    Case kind_;
    long status_;
};

// Replaces every "{name}" with its value, literally and case-sensitively. Placeholders without
// an entry stay as they are.
std::string render(std::string templateText, const std::map<std::string, std::string>& variables);

} // namespace lumivesper::generation
