#include "generation/client_side_image_generator.h"

#include "platform/console.h"
#include "platform/task_group.h"

#include <algorithm>

namespace lumivesper::generation {

ClientSideImageGenerator::ClientSideImageGenerator(const std::string& serverURL,
                                                   settings::Defaults& defaults,
                                                   NetworkSession session)
    : proxyClient(serverURL, defaults, session), promptManager(serverURL, defaults, session) {}

void ClientSideImageGenerator::progress(int completed, const std::string& message) const {
    if (onProgress)
        onProgress(completed, totalImages, message);
}

std::vector<GeneratedImage>
ClientSideImageGenerator::generateTimeline(const std::string& prompt, const std::string& model,
                                           const std::optional<Bytes>& referenceImage,
                                           std::stop_token stop) {
    const PromptTemplates templates = promptManager.prompts(stop);

    Bytes baseFrame;
    if (referenceImage) {
        progress(0, "Using reference image...");
        platform::consoleLine("🎨 Using reference image for relighting");
        baseFrame = *referenceImage;
    } else {
        progress(0, "Generating original image...");
        if (onPhaseStarted)
            onPhaseStarted("night");
        platform::consoleLine("🎨 Generating original image...");
        const std::string rendered = render(templates.templates.original, {{"userPrompt", prompt}});
        baseFrame = proxyClient.generateImage(rendered, model, stop);
    }

    std::vector<GeneratedImage> results;
    results.reserve(totalImages);
    results.push_back({baseFrame, "image/png"});
    if (onImageGenerated)
        onImageGenerated(baseFrame, "night");
    progress(1, "Original complete, relighting...");
    platform::consoleLine("✅ Original complete");

    // Batches run one after another so that at most `concurrency` requests are in flight and
    // progress moves in whole batches. Every phase works from the base frame, never from a
    // neighbour, so drift does not add up along the day.
    const std::size_t batchSize = static_cast<std::size_t>(concurrency);
    const std::size_t batchCount = (lightingPhases.size() + batchSize - 1) / batchSize;
    for (std::size_t batch = 0; batch < batchCount; ++batch) {
        const std::size_t first = batch * batchSize;
        const std::size_t count = std::min(batchSize, lightingPhases.size() - first);
        std::string names;
        for (std::size_t i = first; i < first + count; ++i)
            names += (names.empty() ? "" : ", ") + std::string(lightingPhases[i].name);
        platform::consoleLine("🔵 Batch " + std::to_string(batch + 1) + "/" +
                              std::to_string(batchCount) + ": " + names);

        std::vector<Bytes> relit(count);
        platform::forEachBounded(count, count, stop, [&](std::size_t item, std::stop_token token) {
            relit[item] = relight(lightingPhases[first + item], baseFrame, model,
                                  templates.templates.relight, token);
        });
        for (auto& image : relit)
            results.push_back({std::move(image), "image/png"});

        const int done = static_cast<int>(results.size());
        progress(done, "Completed " + std::to_string(done) + "/11 images...");
        platform::consoleLine("✅ Batch " + std::to_string(batch + 1) + " complete (" +
                              std::to_string(done) + "/11 total)");
    }
    platform::consoleLine("✅ Timeline generation complete: " + std::to_string(results.size()) +
                          " images");
    return results;
}

Bytes ClientSideImageGenerator::relight(const PhaseDescriptor& phase, const Bytes& referenceImage,
                                        const std::string& model,
                                        const std::string& relightTemplate,
                                        std::stop_token stop) const {
    const std::string name(phase.name);
    if (onPhaseStarted)
        onPhaseStarted(name);
    // The user's prompt is no variable here: relit frames follow the scene through the image.
    const std::string description =
        std::string(phase.timeOfDay) + ". " + std::string(phase.description);
    const std::string rendered = render(relightTemplate, {{"phaseDescription", description}});
    platform::consoleLine("  🌅 Relighting for " + name + "...");
    Bytes image = proxyClient.generateImage(rendered, referenceImage, model, std::move(stop));
    if (onImageGenerated)
        onImageGenerated(image, name);
    platform::consoleLine("  ✅ " + name + " complete");
    return image;
}

} // namespace lumivesper::generation
