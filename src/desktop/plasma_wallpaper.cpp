#include "desktop/plasma_wallpaper.h"

#include "desktop/desktop_background_error.h"
#include "platform/image_io.h"
#include "tools/process_runner.h"

#include <fstream>
#include <nlohmann/json.hpp>

namespace lumivesper::desktop {

namespace fs = std::filesystem;

namespace {

void placePicture(const fs::path& picture, const fs::path& folder) {
    fs::create_directories(folder);
    const auto size = platform::readImageSize(picture);
    const fs::path target = folder / (std::to_string(size.width) + "x" +
                                      std::to_string(size.height) + picture.extension().string());
    std::error_code error;
    fs::remove(target, error);
    // A link costs no space; a copy where the folders lie on different file systems.
    fs::create_hard_link(picture, target, error);
    if (error)
        fs::copy_file(picture, target, fs::copy_options::overwrite_existing);
}

} // namespace

fs::path writePlasmaPackage(const fs::path& folder, const std::string& id, const std::string& name,
                            const fs::path& light, const fs::path& dark) {
    fs::create_directories(folder);
    const nlohmann::ordered_json metadata = {
        {"KPlugin",
         {{"Authors", nlohmann::ordered_json::array({{{"Name", "Lumivesper AI"}}})},
          {"Description", "Light and dark pictures of a dynamic wallpaper"},
          {"Id", id},
          {"License", "CC-BY-SA-4.0"},
          {"Name", name}}}};
    std::ofstream out(folder / "metadata.json", std::ios::trunc);
    out << metadata.dump(4) << "\n";
    out.close();
    if (!out)
        throw DesktopBackgroundError("Cannot write " + (folder / "metadata.json").string());
    placePicture(light, folder / "contents" / "images");
    placePicture(dark, folder / "contents" / "images_dark");
    return folder;
}

void applyPlasmaWallpaper(const fs::path& pictureOrPackage) {
    const auto program = tools::findExecutable("plasma-apply-wallpaperimage");
    if (!program)
        throw DesktopBackgroundError(
            "plasma-apply-wallpaperimage was not found: it comes with Plasma (plasma-workspace). "
            "The pictures are ready at " +
            pictureOrPackage.string());
    try {
        tools::runProcess({*program, {pictureOrPackage.string()}, std::nullopt});
    } catch (const tools::ProcessRunnerError& error) {
        throw DesktopBackgroundError(
            "plasma-apply-wallpaperimage failed: " +
            (error.result() ? error.result()->standardError : error.description()));
    }
}

} // namespace lumivesper::desktop
