#pragma once

#include "generation/base64.h"

#include <optional>
#include <string>
#include <string_view>

namespace lumivesper::generation {

// Without leading and trailing white space and newlines.
std::string trimmed(std::string_view text);
// ASCII lower case; model ids and sizes are ASCII.
std::string lowercased(std::string_view text);

// The system prompt and the prompt on separate lines; either alone when the other is empty.
std::string combinedPrompt(const std::optional<std::string>& systemPrompt,
                           const std::string& prompt);

// "openai/gpt-image-1" → "gpt-image-1": everything after the first "/", trimmed.
std::string modelNameAfterProvider(std::string_view model);

// One of the three sizes the OpenAI image models accept (or "auto") nearest in shape to the
// requested size; none when nothing usable was asked for, so that the field is left out.
std::optional<std::string> normalizedImageSize(std::string_view aspectRatio,
                                               const std::optional<std::string>& imageSize);

struct DataURLContents {
    Bytes bytes;
    std::optional<std::string> mimeType;
};

// Reads "data:<type>;base64,<payload>"; none for anything else.
std::optional<DataURLContents> parseDataURL(std::string_view text);

// How a reference image travels: always labelled PNG, whatever the bytes are.
std::string pngDataURL(const Bytes& bytes);

// Whether `text` is an absolute URL that a request can be made for: a scheme, "://", a host, and
// no white space or control characters.
bool isParsableURL(std::string_view text);

// The bytes as text if they are valid UTF-8.
std::optional<std::string> utf8Text(std::string_view bytes);

} // namespace lumivesper::generation
