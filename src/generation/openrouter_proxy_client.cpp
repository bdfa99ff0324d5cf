#include "generation/openrouter_proxy_client.h"

#include "generation/provider_support.h"
#include "generation/proxy_error.h"
#include "generation/request_text.h"
#include "generation/server_wire.h"
#include "platform/console.h"
#include "platform/image_io.h"
#include "platform/redaction.h"

namespace lumivesper::generation {

namespace {

using OrderedJson = nlohmann::ordered_json;

nlohmann::json requestBody(const std::string& model, nlohmann::json content) {
    return {
        {"model", proxyModelId(model)},
        {"messages", nlohmann::json::array({{{"role", "user"}, {"content", std::move(content)}}})},
        {"modalities", {"image", "text"}}};
}

nlohmann::json textPart(const std::string& prompt) {
    return {{"type", "text"}, {"text", prompt}};
}

std::string joinedKeys(const OrderedJson& object) {
    std::string text;
    for (const auto& item : object.items()) {
        if (!text.empty())
            text += ", ";
        text += item.key();
    }
    return text;
}

// The first `count` characters (code points) of UTF-8 text.
std::string prefix(const std::string& text, std::size_t count) {
    std::size_t end = 0;
    for (std::size_t characters = 0; end < text.size() && characters < count; ++characters) {
        ++end;
        while (end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
            ++end;
    }
    return text.substr(0, end);
}

const OrderedJson* stringAt(const OrderedJson* object, const char* key) {
    if (!object || !object->is_object())
        return nullptr;
    const auto found = object->find(key);
    if (found == object->end() || !found->is_string())
        return nullptr;
    return &*found;
}

const OrderedJson* objectAt(const OrderedJson* object, const char* key) {
    if (!object || !object->is_object())
        return nullptr;
    const auto found = object->find(key);
    if (found == object->end() || !found->is_object())
        return nullptr;
    return &*found;
}

// The first element of an array of objects.
const OrderedJson* firstObject(const OrderedJson* object, const char* key) {
    if (!object || !object->is_object())
        return nullptr;
    const auto found = object->find(key);
    if (found == object->end() || !found->is_array() || found->empty())
        return nullptr;
    for (const auto& element : *found)
        if (!element.is_object())
            return nullptr;
    return &found->front();
}

} // namespace

std::string proxyModelId(const std::string& model) {
    constexpr std::string_view prefixText = "openrouter/";
    if (model.starts_with(prefixText))
        return model.substr(prefixText.size());
    return model;
}

OpenRouterProxyClient::OpenRouterProxyClient(std::string serverURL_, settings::Defaults& defaults,
                                             NetworkSession session)
    : serverURL(std::move(serverURL_)),
      tokenManager(std::make_shared<TokenManager>(serverURL, defaults, session)),
      session_(std::move(session)) {}

Bytes OpenRouterProxyClient::generateImage(const std::string& prompt, const std::string& model,
                                           std::stop_token stop) const {
    return send(requestBody(model, prompt), std::string(chatCompletionsPath), std::move(stop));
}

Bytes OpenRouterProxyClient::generateImage(const std::string& prompt, const Bytes& referenceImage,
                                           const std::string& model, std::stop_token stop) const {
    const nlohmann::json content = nlohmann::json::array(
        {textPart(prompt),
         {{"type", "image_url"}, {"image_url", {{"url", pngDataURL(referenceImage)}}}}});
    return send(requestBody(model, content), std::string(chatCompletionsPath), std::move(stop));
}

Bytes OpenRouterProxyClient::editImage(const std::string& prompt, const Bytes& referenceImage,
                                       const Bytes& currentImage, const std::string& model,
                                       std::stop_token stop) const {
    auto image = [](const Bytes& bytes) {
        return nlohmann::json{{"type", "image_url"},
                              {"image_url", {{"url", pngDataURL(bytes)}, {"detail", "high"}}}};
    };
    const nlohmann::json content =
        nlohmann::json::array({textPart(prompt), image(referenceImage), image(currentImage)});
    return send(requestBody(model, content), std::string(chatCompletionsPath), std::move(stop));
}

Bytes OpenRouterProxyClient::send(const nlohmann::json& body, const std::string& path,
                                  std::stop_token stop) const {
    const std::string url = serverURL + std::string(proxyPath) + path;
    if (!isParsableURL(url))
        throw ProxyError::invalidURL();
    const std::string token = tokenManager->validToken(stop);

    platform::HttpRequest request;
    request.method = "POST";
    request.url = url;
    request.timeout = session_.timeout(requestTimeout);
    request.headers = {{"Authorization", "Bearer " + token}, {"Content-Type", "application/json"}};
    request.body = body.dump();
    try {
        return perform(request, stop);
    } catch (const ProxyError& error) {
        if (error.kind() != ProxyError::Case::unauthorized)
            throw;
    }
    // The token manager hands out a new token only near the old one's end, so this helps a
    // token that expired in its last minutes; a second 401 is final.
    platform::consoleLine("⚠️  Token expired, retrying with fresh token...");
    request.headers[0].second = "Bearer " + tokenManager->validToken(stop);
    return perform(request, stop);
}

Bytes OpenRouterProxyClient::perform(const platform::HttpRequest& request,
                                     std::stop_token stop) const {
    const auto response = session_.http.send(request, stop);
    if (response.status == 401)
        throw ProxyError::unauthorized();
    if (response.status != 200) {
        const std::string text = utf8Text(response.body).value_or("No error details");
        platform::consoleLine("❌ Proxy error (" + std::to_string(response.status) +
                              "): " + platform::redactedSecrets(text));
        throw ProxyError::serverError(response.status, text);
    }
    const auto root = OrderedJson::parse(response.body, nullptr, false);
    if (root.is_discarded() || !root.is_object()) {
        platform::consoleLine("❌ Failed to parse JSON response");
        throw ProxyError::invalidImageResponse();
    }
    platform::consoleLine("📦 OpenRouter response keys: " + joinedKeys(root));

    const OrderedJson* message = objectAt(firstObject(&root, "choices"), "message");
    if (!message) {
        platform::consoleLine("❌ Missing choices or message in response");
        platform::consoleLine("📄 Response structure:\n" + root.dump(2));
        throw ProxyError::invalidImageResponse();
    }
    platform::consoleLine("💬 Message keys: " + joinedKeys(*message));
    if (auto image = extractImage(root, *message, stop))
        return std::move(*image);
    platform::consoleLine("❌ Could not extract image from any known format");
    throw ProxyError::invalidImageResponse();
}

std::optional<Bytes> OpenRouterProxyClient::extractImage(const OrderedJson& root,
                                                         const OrderedJson& message,
                                                         std::stop_token stop) const {
    const OrderedJson* firstImage = firstObject(&message, "images");

    if (const auto* urlValue = stringAt(objectAt(firstImage, "image_url"), "url")) {
        const auto& url = urlValue->get_ref<const std::string&>();
        platform::consoleLine(
            "📝 Found image_url.url: " + platform::redactedSecrets(prefix(url, 100)) + "...");
        if (url.starts_with("data:image/")) {
            const auto comma = url.find(',');
            const bool twoPieces =
                comma != std::string::npos && comma > 0 && comma + 1 < url.size();
            if (twoPieces) {
                if (auto bytes = platform::decodeBase64(std::string_view(url).substr(comma + 1))) {
                    platform::consoleLine(
                        "✅ Extracted image from message.images[].image_url.url (base64 data URL)");
                    return bytes;
                }
            }
        }
        if (url.starts_with("http") && isParsableURL(url)) {
            platform::consoleLine("🌐 Downloading image from URL: " +
                                  platform::redactedSecrets(url));
            return download(url, stop);
        }
    }

    if (const auto* b64 = stringAt(firstImage, "b64_json")) {
        if (auto bytes = platform::decodeBase64(b64->get_ref<const std::string&>())) {
            platform::consoleLine("✅ Extracted image from message.images[].b64_json");
            return bytes;
        }
    }

    if (const auto* contentValue = stringAt(&message, "content")) {
        const auto& content = contentValue->get_ref<const std::string&>();
        platform::consoleLine("📝 Message content: " + prefix(content, 200) + "...");
        if (isParsableURL(content) && content.starts_with("http")) {
            platform::consoleLine("🌐 Downloading image from URL: " +
                                  platform::redactedSecrets(content));
            return download(content, stop);
        }
    }

    if (const auto* urlValue = stringAt(firstObject(&root, "data"), "url")) {
        const auto& url = urlValue->get_ref<const std::string&>();
        if (isParsableURL(url)) {
            platform::consoleLine("🌐 Downloading image from data[].url: " +
                                  platform::redactedSecrets(url));
            return download(url, stop);
        }
    }
    return std::nullopt;
}

Bytes OpenRouterProxyClient::download(const std::string& url, std::stop_token stop) const {
    platform::HttpRequest request;
    request.method = "GET";
    request.url = url;
    request.timeout = session_.timeout(std::chrono::seconds(60));
    const auto response = session_.http.send(request, std::move(stop));
    // An error page saved as a frame would pass for a generated image.
    if (!isSuccessStatus(response.status)) {
        const std::string text = utf8Text(response.body).value_or("No error details");
        platform::consoleLine("❌ Image download failed (" + std::to_string(response.status) +
                              "): " + platform::redactedSecrets(text));
        throw ProxyError::serverError(response.status, text);
    }
    if (!platform::decodesAsImage(response.body)) {
        platform::consoleLine("❌ Downloaded bytes are not an image");
        throw ProxyError::invalidImageResponse();
    }
    return toBytes(response.body);
}

} // namespace lumivesper::generation
