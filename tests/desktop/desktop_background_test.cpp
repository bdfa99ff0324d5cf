#include "../support/temporary_folder.h"
#include "desktop/background_timer.h"
#include "desktop/desktop_background.h"
#include "desktop/gnome_background.h"
#include "document/wallpaper_image.h"
#include "export/heic_generator.h"
#include "platform/image_io.h"
#include "tools/process_runner.h"

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <pugixml.hpp>
#include <sstream>

namespace lumivesper::desktop {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

std::string readText(const fs::path& path) {
    std::ifstream in(path);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// A home of its own (with a blank and a quote in the data folder's name), GSettings in a key
// file there, the real gsettings, and stand-ins for systemctl and Plasma's tool that note how
// they were called.
class DesktopBackgroundTest : public ::testing::Test {
protected:
    void SetUp() override {
        const fs::path home = folder.path() / "home";
        fs::create_directories(bin);
        for (const char* tool : {"systemctl", "plasma-apply-wallpaperimage"}) {
            std::ofstream(bin / tool)
                << "#!/bin/sh\necho \"$*\" >> '" << (folder.path() / tool).string() << "'\n";
            fs::permissions(bin / tool, fs::perms::owner_all);
        }
        set("HOME", home);
        set("XDG_CONFIG_HOME", home / ".config");
        set("XDG_DATA_HOME", home / "data home's");
        set("GSETTINGS_BACKEND", "keyfile");
        set("XDG_CURRENT_DESKTOP", "ubuntu:GNOME");
        set("PATH", bin.string() + ":/usr/bin:/bin");
        set("TZ", "UTC");
        ::tzset();
    }
    void TearDown() override {
        for (const auto& [name, value] : saved)
            value ? ::setenv(name.c_str(), value->c_str(), 1) : ::unsetenv(name.c_str());
        ::tzset();
    }
    void set(const std::string& name, const fs::path& value) {
        const char* previous = std::getenv(name.c_str());
        saved.emplace_back(name, previous ? std::optional<std::string>(previous) : std::nullopt);
        ::setenv(name.c_str(), value.c_str(), 1);
    }

    // A wallpaper of solid pictures, each told apart by its red value.
    fs::path wallpaper(const std::string& name, document::WallpaperMode mode,
                       std::vector<std::tuple<std::uint8_t, double, double>> frames) {
        std::vector<document::WallpaperImage> images;
        for (const auto& [red, altitude, azimuth] : frames) {
            platform::PixelImage pixels(64, 36);
            for (std::size_t i = 0; i < pixels.rgba.size(); i += 4)
                pixels.rgba[i] = red, pixels.rgba[i + 3] = 255;
            document::WallpaperImage image;
            image.fileName = std::to_string(red) + ".png";
            image.sourcePath = folder.path() / image.fileName;
            platform::writePng(pixels, *image.sourcePath);
            image.altitude = altitude, image.azimuth = azimuth;
            image.isLight = images.empty();
            images.push_back(image);
        }
        const auto path = folder.path() / name;
        exporting::HeicGenerator().generate(images, path, mode, std::nullopt, {});
        return path;
    }
    fs::path timeWallpaper() {
        return wallpaper("day.heic", document::WallpaperMode::time,
                         {{10, 5, 100}, {120, 20, 180}, {240, -40, 0}});
    }
    fs::path appearanceWallpaper() {
        return wallpaper("light-dark.heic", document::WallpaperMode::appearance,
                         {{200, 0, 0}, {30, 0, 0}});
    }

    ApplyResult apply(const fs::path& source, std::optional<DesktopKind> desktop = {},
                      std::string command = {}) {
        return applyDesktopBackground({source,
                                       desktop,
                                       std::move(command),
                                       Location{48.14, 11.58},
                                       {"/opt/lumivesper-cli", "apply", "--refresh"}});
    }

    static std::string gsetting(const std::string& key) {
        return tools::runProcess(
                   {"/usr/bin/gsettings", {"get", "org.gnome.desktop.background", key}, {}})
            .standardOutput;
    }
    // The file of a printed 'file://...' value.
    static fs::path pathOf(const std::string& printed) {
        const std::string uri = printed.substr(8, printed.find('\'', 1) - 8);
        std::string path;
        for (std::size_t n = 0; n < uri.size(); ++n) {
            if (uri[n] != '%') {
                path += uri[n];
                continue;
            }
            path += static_cast<char>(std::stoi(uri.substr(n + 1, 2), nullptr, 16));
            n += 2;
        }
        return path;
    }
    static int redOf(const fs::path& picture) { return platform::loadImage(picture).rgba[0]; }
    std::vector<fs::path> backgroundFolders() const {
        std::vector<fs::path> result;
        for (const auto& entry : fs::directory_iterator(backgroundsFolder()))
            if (entry.is_directory())
                result.push_back(entry.path());
        return result;
    }
    std::string calls(const char* tool) const { return readText(folder.path() / tool); }

    lumivesper::testing::TemporaryFolder folder;
    fs::path bin = folder.path() / "bin";
    std::vector<std::pair<std::string, std::optional<std::string>>> saved;
};

TEST_F(DesktopBackgroundTest, GnomeGetsADailySlideshowThenLightAndDarkPicturesThenNothing) {
    const auto result = apply(timeWallpaper());
    EXPECT_THAT(result.lines, ::testing::Contains("Desktop: gnome"));
    const auto folders = backgroundFolders();
    ASSERT_EQ(folders.size(), 1u);
    const fs::path slideshow = folders[0] / "slideshow.xml";
    const std::string uri = "'" + fileUri(slideshow) + "'\n";
    EXPECT_EQ(gsetting("picture-uri"), uri);
    EXPECT_EQ(gsetting("picture-uri-dark"), uri);
    EXPECT_THAT(fileUri(slideshow), HasSubstr("data%20home%27s"));

    pugi::xml_document xml;
    ASSERT_TRUE(xml.load_file(slideshow.c_str()));
    double total = 0;
    for (auto node : xml.child("background").children()) {
        total += node.child("duration").text().as_double();
        for (const char* file : {"file", "from", "to"})
            if (auto path = node.child(file)) {
                EXPECT_TRUE(fs::exists(path.text().get())) << path.text().get();
            }
    }
    EXPECT_DOUBLE_EQ(total, 86400.0);
    const std::time_t now = std::time(nullptr);
    EXPECT_EQ(xml.child("background").child("starttime").child("day").text().as_int(),
              std::gmtime(&now)->tm_mday);

    pugi::xml_document listed;
    ASSERT_TRUE(listed.load_file(gnomeBackgroundPropertiesFile().c_str()));
    EXPECT_EQ(
        fs::path(listed.child("wallpapers").child("wallpaper").child("filename").text().get()),
        slideshow);

    const fs::path units = userUnitFolder();
    EXPECT_THAT(readText(units / serviceUnitName),
                HasSubstr("ExecStart=\"/opt/lumivesper-cli\" \"apply\" \"--refresh\""));
    EXPECT_THAT(readText(units / timerUnitName), HasSubstr("OnCalendar=*-*-* 00:00:30"));
    EXPECT_TRUE(fs::is_symlink(units / "timers.target.wants" / timerUnitName));
    EXPECT_EQ(calls("systemctl"),
              "--user daemon-reload\n--user restart lumivesper-background.timer\n");

    // Applying again replaces: new pictures, the old ones gone, no timer for light and dark.
    apply(appearanceWallpaper());
    ASSERT_EQ(backgroundFolders().size(), 1u);
    EXPECT_NE(backgroundFolders()[0], folders[0]);
    const auto light = gsetting("picture-uri"), dark = gsetting("picture-uri-dark");
    EXPECT_EQ(redOf(pathOf(light)), 200);
    EXPECT_EQ(redOf(pathOf(dark)), 30);
    EXPECT_NE(light, dark);
    EXPECT_FALSE(fs::exists(units / timerUnitName));
    EXPECT_THAT(readText(gnomeBackgroundPropertiesFile()), HasSubstr("<filename-dark>"));

    removeDesktopBackground();
    EXPECT_EQ(gsetting("picture-uri").find("lumivesper"), std::string::npos);
    EXPECT_FALSE(fs::exists(backgroundsFolder()));
    EXPECT_FALSE(fs::exists(gnomeBackgroundPropertiesFile()));
}

TEST_F(DesktopBackgroundTest, PlasmaGetsAPackageForAppearanceAndThePictureOfTheMomentForTime) {
    apply(appearanceWallpaper(), DesktopKind::plasma);
    const fs::path package =
        fs::path(std::getenv("XDG_DATA_HOME")) / "wallpapers" / "lumivesper-ai-dynamic";
    EXPECT_EQ(calls("plasma-apply-wallpaperimage"), package.string() + "\n");
    // What Plasma's package loader requires of metadata.json.
    const auto metadata = nlohmann::json::parse(readText(package / "metadata.json"));
    ASSERT_TRUE(metadata.contains("KPlugin") && metadata["KPlugin"].is_object());
    const auto& plugin = metadata["KPlugin"];
    for (const char* key : {"Id", "Name", "Description", "License"})
        EXPECT_TRUE(plugin.contains(key) && plugin[key].is_string()) << key;
    EXPECT_EQ(plugin["Id"], "lumivesper-ai-dynamic"); // the folder's name
    ASSERT_TRUE(plugin["Authors"].is_array());
    EXPECT_TRUE(plugin["Authors"][0]["Name"].is_string());
    EXPECT_EQ(redOf(package / "contents" / "images" / "64x36.png"), 200);
    EXPECT_EQ(redOf(package / "contents" / "images_dark" / "64x36.png"), 30);

    apply(timeWallpaper(), DesktopKind::plasma);
    EXPECT_THAT(readText(userUnitFolder() / timerUnitName), HasSubstr("OnCalendar=*:0/5"));
    auto shown = [this] {
        std::vector<int> reds;
        std::istringstream lines(calls("plasma-apply-wallpaperimage"));
        for (std::string line; std::getline(lines, line);)
            reds.push_back(line.ends_with(".png") ? redOf(line) : 0);
        return reds;
    };
    using namespace std::chrono;
    const auto today = floor<days>(system_clock::now());
    refreshDesktopBackground(today + hours(12));
    const auto atNoon = shown();
    EXPECT_EQ(atNoon.back(), 120);
    refreshDesktopBackground(today + hours(12) + minutes(5));
    EXPECT_EQ(shown(), atNoon) << "the same picture is not set again";
    refreshDesktopBackground(today + hours(23) + minutes(50));
    EXPECT_EQ(shown().size(), atNoon.size() + 1);
    EXPECT_EQ(shown().back(), 240);
}

TEST_F(DesktopBackgroundTest, ACommandHookGetsThePictureOfTheMomentQuoted) {
    const fs::path log = folder.path() / "hook.log";
    apply(timeWallpaper(), std::nullopt, "printf '%s\\n' {} >> '" + log.string() + "'");
    const std::string shown = readText(log);
    ASSERT_FALSE(shown.empty());
    EXPECT_TRUE(fs::exists(shown.substr(0, shown.size() - 1))) << shown;
    EXPECT_THROW(apply(timeWallpaper(), std::nullopt, "exit 3 {}"), DesktopBackgroundError);
    EXPECT_EQ(readText(log), shown) << "a failed apply leaves the background as it was";
}

TEST_F(DesktopBackgroundTest, NoDesktopOrNoPlaceIsAClearErrorThatChangesNothing) {
    set("XDG_CURRENT_DESKTOP", "sway");
    EXPECT_THROW(apply(timeWallpaper()), DesktopBackgroundError);
    EXPECT_THROW(applyDesktopBackground({timeWallpaper(), DesktopKind::gnome, {}, {}, {}}),
                 DesktopBackgroundError);
    EXPECT_TRUE(backgroundFolders().empty());
    EXPECT_EQ(gsetting("picture-uri").find("lumivesper"), std::string::npos);
}

} // namespace
} // namespace lumivesper::desktop
