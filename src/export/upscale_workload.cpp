#include "export/upscale_workload.h"

#include "export/upscale/onnx_upscale_tool.h"
#include "platform/image_io.h"

namespace lumivesper::exporting {

std::vector<upscale::PlanSize>
upscaledFrameSizes(const std::vector<document::WallpaperImage>& images) {
    std::vector<upscale::PlanSize> sizes;
    for (const auto& image : images) {
        if (image.isTween || !image.sourcePath)
            continue;
        try {
            const platform::ImageSize size = platform::readImageSize(*image.sourcePath);
            sizes.push_back({double(size.width), double(size.height)});
        } catch (const platform::ImageIoError&) {
        }
    }
    return sizes;
}

upscale::UpscaleWorkload upscaleWorkload(const std::vector<document::WallpaperImage>& images,
                                         const HeicExportOptions& options) {
    if (!options.upscaleEnabled)
        return {};
    std::optional<upscale::PlanSize> target;
    if (const auto size = options.targetSize())
        target = upscale::PlanSize{size->width, size->height};
    return upscale::upscaleWorkload(upscaledFrameSizes(images), target, options.upscaleStrategy,
                                    {upscale::OnnxUpscaleTool::scaleFactor});
}

} // namespace lumivesper::exporting
