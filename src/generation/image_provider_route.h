#pragma once

#include <string_view>

namespace lumivesper::generation {

enum class ImageProviderRoute { openAI, gemini, openRouter, automatic };

// Which provider a model id names. The Gemini test comes before the OpenRouter one on purpose:
// "openrouter/google/gemini-..." goes to Gemini.
ImageProviderRoute imageProviderRoute(std::string_view model);

} // namespace lumivesper::generation
