#include "shell/export_frame_status.h"

#include <regex>

namespace lumivesper::shell {

std::vector<ExportFrameInfo> pendingFrames(const std::vector<document::WallpaperImage>& images) {
    std::vector<ExportFrameInfo> frames;
    frames.reserve(images.size());
    for (const auto& image : images)
        frames.push_back({image.id.toString(), !image.isTween, image.fileName, image.thumbnail,
                          ExportFrameStatus::pending});
    return frames;
}

void updateFrameStatuses(std::vector<ExportFrameInfo>& frames, const std::string& message) {
    if (message.find("Upscaling frame") != std::string::npos ||
        message.find("Preprocessed frame") != std::string::npos) {
        static const std::regex fraction(R"((\d+)/(\d+))");
        std::smatch match;
        if (!std::regex_search(message, match, fraction))
            return;
        long current = 0;
        try {
            current = std::stol(match[1]);
            (void)std::stol(match[2]);
        } catch (const std::exception&) {
            return; // digits too many to be a count
        }
        long keyCount = 0;
        for (auto& frame : frames) {
            if (!frame.isKeyFrame)
                continue;
            ++keyCount;
            if (keyCount < current) {
                frame.status = ExportFrameStatus::complete;
            } else if (keyCount == current) {
                frame.status = ExportFrameStatus::upscaling;
                break;
            }
        }
        return;
    }
    if (message.find("Regenerating tweens") != std::string::npos) {
        for (auto& frame : frames)
            frame.status =
                frame.isKeyFrame ? ExportFrameStatus::complete : ExportFrameStatus::blending;
        return;
    }
    if (message.find("Encoded image") != std::string::npos) {
        for (auto& frame : frames)
            frame.status = ExportFrameStatus::complete;
    }
}

std::string suggestedExportFileName(const std::optional<std::filesystem::path>& projectPath) {
    if (projectPath) {
        std::filesystem::path package = *projectPath;
        if (!package.has_filename())
            package = package.parent_path();
        if (const std::string stem = package.stem().string(); !stem.empty())
            return stem + ".heic";
    }
    return "dynamic-wallpaper.heic";
}

} // namespace lumivesper::shell
