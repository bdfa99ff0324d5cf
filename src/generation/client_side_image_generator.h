#pragma once

#include "generation/generated_image.h"
#include "generation/openrouter_proxy_client.h"
#include "generation/phase_descriptor.h"
#include "generation/prompt_manager.h"

#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace lumivesper::generation {

// Turns a prompt, or a reference image, into eleven images of one scene across the day: a base
// frame, then ten relit copies of it, three requests at a time through our server's proxy. It
// knows nothing of files or the document. One generator serves one run.
class ClientSideImageGenerator {
public:
    // Callbacks fire on whatever thread does the work, relight ones concurrently and out of table
    // order; each must be safe to call from any thread. Set them before a run.
    using ProgressCallback = std::function<void(int completed, int total, const std::string&)>;
    using PhaseStartedCallback = std::function<void(const std::string& phaseName)>;
    using ImageGeneratedCallback =
        std::function<void(const Bytes& image, const std::string& phaseName)>;

    // The count in every progress report: the base frame and ten relit frames.
    static constexpr int totalImages = 11;

    ClientSideImageGenerator(const std::string& serverURL, settings::Defaults& defaults,
                             NetworkSession session = {});

    // Base frame first, then the phases in table order, each labelled "image/png". Any failure
    // cancels the requests in flight and ends the run; so does a stop of `stop`
    // (CancellationError).
    std::vector<GeneratedImage> generateTimeline(const std::string& prompt,
                                                 const std::string& model,
                                                 const std::optional<Bytes>& referenceImage,
                                                 std::stop_token stop = {});

    OpenRouterProxyClient proxyClient;
    PromptManager promptManager;
    const int concurrency = 3;
    ProgressCallback onProgress;
    PhaseStartedCallback onPhaseStarted;
    ImageGeneratedCallback onImageGenerated;

private:
    Bytes relight(const PhaseDescriptor& phase, const Bytes& referenceImage,
                  const std::string& model, const std::string& relightTemplate,
                  std::stop_token stop) const;
    void progress(int completed, const std::string& message) const;
};

} // namespace lumivesper::generation
