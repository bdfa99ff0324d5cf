#pragma once

#include <filesystem>
#include <string>

namespace lumivesper::desktop {

// Writes a Plasma wallpaper package into `folder`: metadata.json, the light picture under
// contents/images and the dark one under contents/images_dark, each named by its size as Plasma
// expects ("3840x2160.png"). Returns the package folder.
std::filesystem::path writePlasmaPackage(const std::filesystem::path& folder, const std::string& id,
                                         const std::string& name,
                                         const std::filesystem::path& light,
                                         const std::filesystem::path& dark);

// Shows a picture or a wallpaper package on every Plasma desktop with plasma-apply-wallpaperimage.
// Throws DesktopBackgroundError when the tool is missing or fails.
void applyPlasmaWallpaper(const std::filesystem::path& pictureOrPackage);

} // namespace lumivesper::desktop
