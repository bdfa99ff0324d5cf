#include "document/project.h"

namespace lumivesper::document {

Project makeProject(WallpaperMode mode, std::vector<WallpaperImage> images,
                    const std::string& magicPrompt, const std::string& magicSize,
                    int magicTweenCount, const std::string& magicStartingImageFileName) {
    Project project;
    project.mode = mode;
    project.images = std::move(images);
    if (!magicPrompt.empty())
        project.magicPrompt = magicPrompt;
    if (magicSize != defaultMagicSize)
        project.magicSize = magicSize;
    if (magicTweenCount != defaultMagicTweenCount)
        project.magicTweenCount = magicTweenCount;
    if (!magicStartingImageFileName.empty())
        project.magicStartingImageFileName = magicStartingImageFileName;
    return project;
}

} // namespace lumivesper::document
