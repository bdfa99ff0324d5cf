#include "generation/openai_image_edit_service.h"

#include "generation/image_generation_error.h"
#include "generation/network_log.h"
#include "generation/openai/openai_records.h"
#include "generation/provider_support.h"
#include "generation/request_text.h"
#include "platform/uuid.h"

namespace lumivesper::generation {

namespace {

void appendTextPart(std::string& body, const std::string& boundary, const std::string& name,
                    const std::string& value) {
    body += "--" + boundary + "\r\n";
    body += "Content-Disposition: form-data; name=\"" + name + "\"\r\n\r\n";
    body += value + "\r\n";
}

} // namespace

std::string openAIEditBody(const std::string& boundary, const std::string& model,
                           const std::string& prompt, const std::optional<std::string>& size,
                           const Bytes& image) {
    std::string body;
    body.reserve(image.size() + 1024);
    appendTextPart(body, boundary, "model", model);
    appendTextPart(body, boundary, "prompt", prompt);
    appendTextPart(body, boundary, "n", "1");
    if (size)
        appendTextPart(body, boundary, "size", *size);
    body += "--" + boundary + "\r\n";
    body += "Content-Disposition: form-data; name=\"image\"; filename=\"reference.png\"\r\n";
    body += "Content-Type: image/png\r\n\r\n";
    body.append(image.begin(), image.end());
    body += "\r\n";
    body += "--" + boundary + "--\r\n";
    return body;
}

OpenAIImageEditService::OpenAIImageEditService(
    std::shared_ptr<const APIKeyProvider> apiKeyProvider_, NetworkSession session_,
    std::string generationURL_, std::string editsURL_)
    : apiKeyProvider(std::move(apiKeyProvider_)), session(std::move(session_)),
      generationURL(std::move(generationURL_)), editsURL(std::move(editsURL_)) {}

OpenAIImageEditService::OpenAIImageEditService(
    std::shared_ptr<const APIKeyProvider> apiKeyProvider_, NetworkSession session_,
    const std::string& host)
    : OpenAIImageEditService(std::move(apiKeyProvider_), std::move(session_),
                             host + "/v1/images/generations", host + "/v1/images/edits") {}

bool OpenAIImageEditService::isConfigured() const {
    return hasKey(*apiKeyProvider);
}

GeneratedImage OpenAIImageEditService::generateImage(
    const std::string& prompt, const std::string& model, const std::string& aspectRatio,
    const std::optional<Bytes>& referenceImage, const std::optional<std::string>& systemPrompt,
    const std::optional<std::string>& imageSize, std::stop_token stop) const {
    const std::string key = requireKey(*apiKeyProvider);
    const std::string name = modelNameAfterProvider(model);
    const auto size = normalizedImageSize(aspectRatio, imageSize);
    const std::string text = combinedPrompt(systemPrompt, prompt);
    logPrompt("OpenAI", std::nullopt, text);

    platform::HttpRequest request;
    request.method = "POST";
    request.timeout = session.timeout(providerRequestTimeout);
    if (referenceImage) {
        const std::string boundary = "Boundary-" + platform::Uuid::generate().toString();
        request.url = editsURL;
        request.headers = {{"Content-Type", "multipart/form-data; boundary=" + boundary},
                           {"Authorization", "Bearer " + key}};
        request.body = openAIEditBody(boundary, name, text, size, *referenceImage);
        return handleResponse(sendLogged(session, request, "OpenAI-Edits", stop), stop);
    }
    request.url = generationURL;
    request.headers = {{"Content-Type", "application/json"}, {"Authorization", "Bearer " + key}};
    request.body = toJson(OpenAIImageRequest{name, text, 1, size}).dump();
    return handleResponse(sendLogged(session, request, "OpenAI-Images", stop), stop);
}

GeneratedImage OpenAIImageEditService::handleResponse(const platform::HttpResponse& response,
                                                      std::stop_token stop) const {
    if (!isSuccessStatus(response.status))
        throw ImageGenerationError::requestFailed(providerErrorText("OpenAI", response));
    const auto decoded = decodeOpenAIImageResponse(response.body);
    if (!decoded)
        throw ImageGenerationError::invalidResponse();
    return firstImageOf(decoded->data, [&](const std::string& url) {
        return fetchImage(session, url, "OpenAI", "OpenAI-ImageFetch", stop);
    });
}

} // namespace lumivesper::generation
