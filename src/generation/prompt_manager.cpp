#include "generation/prompt_manager.h"

#include "generation/bundled_resources.h"
#include "generation/request_text.h"
#include "generation/server_wire.h"
#include "platform/cancellation.h"
#include "platform/console.h"

#include <exception>

namespace lumivesper::generation {

PromptManager::PromptManager(std::string serverURL_, settings::Defaults& defaults,
                             NetworkSession session, BundledSource bundled, Clock clock)
    : serverURL(std::move(serverURL_)), defaults_(defaults), session_(std::move(session)),
      bundled_(bundled ? std::move(bundled) : BundledSource(bundledDefaultPrompts)),
      now_(std::move(clock)) {
    loadCachedPrompts();
}

void PromptManager::loadCachedPrompts() {
    const auto data = defaults_.data(cacheKey);
    if (!data)
        return;
    try {
        cachedPrompts_ = decodePromptTemplates(std::string(data->begin(), data->end()));
    } catch (const std::exception&) {
        return; // an unreadable copy is simply not used
    }
    // The hour starts now, not when the copy was fetched: a copy counts as fresh for the first
    // hour after each start, so a launch needs no round trip.
    lastFetch_ = now_();
    platform::consoleLine("✅ Loaded cached prompts (v" + cachedPrompts_->version + ")");
}

PromptTemplates PromptManager::prompts(std::stop_token stop) {
    if (cachedPrompts_ && lastFetch_ && now_() - *lastFetch_ < cacheDuration)
        return *cachedPrompts_;
    try {
        return fetchFromServer(stop);
    } catch (const platform::CancellationError&) {
        throw;
    } catch (const std::exception& error) {
        platform::consoleLine(std::string("⚠️  Failed to fetch prompts from server: ") +
                              error.what());
    }
    // A stale copy deliberately loses to the bundled one once the server has failed.
    return loadBundledPrompts();
}

PromptTemplates PromptManager::fetchFromServer(std::stop_token stop) {
    const std::string url = serverURL + std::string(promptsPath);
    if (!isParsableURL(url))
        throw PromptError::invalidURL();
    platform::HttpRequest request;
    request.method = "GET";
    request.url = url;
    request.timeout = session_.timeout(std::chrono::seconds(60));
    const auto response = session_.http.send(request, std::move(stop));
    if (response.status != 200)
        throw PromptError::serverError(response.status);
    auto templates = decodePromptTemplates(response.body);

    cachedPrompts_ = templates;
    lastFetch_ = now_();
    defaults_.setData(cacheKey, toBytes(response.body));
    platform::consoleLine("✅ Prompts fetched from server (v" + templates.version + ")");
    return templates;
}

PromptTemplates PromptManager::loadBundledPrompts() const {
    const auto text = bundled_();
    if (!text)
        throw PromptError::noBundledPrompts();
    try {
        auto templates = decodePromptTemplates(*text);
        platform::consoleLine("✅ Using bundled prompts (v" + templates.version + ")");
        return templates;
    } catch (const std::exception&) {
        throw PromptError::noBundledPrompts();
    }
}

} // namespace lumivesper::generation
