#pragma once

#include "generation/network_session.h"
#include "generation/prompt_templates.h"
#include "settings/defaults.h"

#include <chrono>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>

namespace lumivesper::generation {

// Supplies the prompt templates: a copy younger than an hour (in memory, or the defaults copy
// taken as fresh at creation), else the server's, else the bundled file. Templates live on the
// server so they can improve without a release. Not for concurrent use.
class PromptManager {
public:
    using Clock = std::function<std::chrono::system_clock::time_point()>;
    using BundledSource = std::function<std::optional<std::string>()>;

    static constexpr const char* cacheKey = "CachedPromptTemplates";
    static constexpr std::chrono::seconds cacheDuration{3600};

    PromptManager(std::string serverURL, settings::Defaults& defaults, NetworkSession session = {},
                  BundledSource bundled = {}, Clock clock = std::chrono::system_clock::now);

    // Fails only with noBundledPrompts (or CancellationError when `stop` fires).
    PromptTemplates prompts(std::stop_token stop = {});

    const std::string serverURL;

private:
    void loadCachedPrompts();
    PromptTemplates fetchFromServer(std::stop_token stop);
    PromptTemplates loadBundledPrompts() const;

    settings::Defaults& defaults_;
    const NetworkSession session_;
    const BundledSource bundled_;
    const Clock now_;
    std::optional<PromptTemplates> cachedPrompts_;
    std::optional<std::chrono::system_clock::time_point> lastFetch_;
};

} // namespace lumivesper::generation
