#include "export/wallpaper_reader.h"

#include "export/bplist_reader.h"
#include "export/heif_owners.h"
#include "export/heif_srgb_decoding.h"
#include "export/wallpaper_metadata.h"
#include "platform/base64.h"

#include <algorithm>
#include <cstring>
#include <system_error>

namespace lumivesper::exporting {

namespace {

[[noreturn]] void fail(const std::string& message) {
    throw WallpaperReadError(message);
}

void check(heif_error error, const std::string& what) {
    if (error.code != heif_error_Ok)
        fail(what + ": " + (error.message ? error.message : "unknown error"));
}

HeifHandlePtr imageHandle(heif_context* context, heif_item_id id) {
    heif_image_handle* handle = nullptr;
    check(heif_context_get_image_handle(context, id, &handle), "Cannot open an image of the file");
    return HeifHandlePtr(handle);
}

std::string xmpOf(const heif_image_handle* handle) {
    const int count = heif_image_handle_get_number_of_metadata_blocks(handle, "mime");
    std::vector<heif_item_id> ids(static_cast<std::size_t>(std::max(count, 0)));
    heif_image_handle_get_list_of_metadata_block_IDs(handle, "mime", ids.data(), count);
    for (auto id : ids) {
        const char* type = heif_image_handle_get_metadata_content_type(handle, id);
        if (!type || std::strcmp(type, "application/rdf+xml") != 0)
            continue;
        std::string data(heif_image_handle_get_metadata_size(handle, id), '\0');
        check(heif_image_handle_get_metadata(handle, id, data.data()), "Cannot read the XMP");
        return data;
    }
    return {};
}

// Reads the records of one document against the number of images in the file.
class DocumentReader {
public:
    DocumentReader(std::string where, std::size_t imageCount)
        : where_(std::move(where)), imageCount_(imageCount) {}

    const PlistValue& require(const PlistValue& container, const char* key) const {
        const PlistValue* value = container.find(key);
        if (!value)
            fail(where_ + ": \"" + key + "\" is missing");
        return *value;
    }

    // Other writers store whole-degree angles as integers; both count as numbers.
    double number(const PlistValue& container, const char* key) const {
        const PlistValue& value = require(container, key);
        if (value.isReal())
            return value.real();
        if (value.isInteger())
            return static_cast<double>(value.integer());
        fail(where_ + ": \"" + key + "\" is not a number");
    }

    long long index(const PlistValue& container, const char* key) const {
        const PlistValue& value = require(container, key);
        if (!value.isInteger())
            fail(where_ + ": \"" + key + "\" is not an integer");
        const long long index = value.integer();
        if (index < 0 || static_cast<std::size_t>(index) >= imageCount_)
            fail(where_ + ": image index " + std::to_string(index) +
                 " is out of range (the file holds " + std::to_string(imageCount_) + " images)");
        return index;
    }

    // A flag written as an integer (ours) or a boolean (some other writers).
    std::optional<long long> optionalFlag(const PlistValue& container, const char* key) const {
        const PlistValue* value = container.find(key);
        if (!value)
            return std::nullopt;
        if (value->isInteger())
            return value->integer();
        if (value->isBoolean())
            return value->boolean() ? 1 : 0;
        fail(where_ + ": \"" + key + "\" is not an integer");
    }

    const PlistValue::Array& records(const PlistValue& root, const char* key) const {
        const PlistValue& value = require(root, key);
        if (!value.isArray() || value.array().empty())
            fail(where_ + ": \"" + key + "\" is not a list of records");
        for (const auto& record : value.array())
            if (!record.isDictionary())
                fail(where_ + ": \"" + key + "\" holds something that is not a record");
        return value.array();
    }

    DocumentReader at(const std::string& record) const {
        return {where_ + " " + record, imageCount_};
    }

private:
    std::string where_;
    std::size_t imageCount_;
};

PlistValue decodeDocument(const DesktopProperty& property) {
    const std::string name = std::string(desktopPrefix) + ":" + property.name;
    // Element values are often wrapped over several lines; the attribute form has none.
    const auto bytes = platform::decodeBase64IgnoringUnknown(property.value);
    if (!bytes || bytes->empty())
        fail("The " + name + " value is not valid base64");
    PlistValue root;
    try {
        root = readBinaryPlist(*bytes);
    } catch (const PlistReadError& error) {
        fail("The " + name + " value is not a readable property list (" + error.what() + ")");
    }
    if (!root.isDictionary())
        fail("The " + name + " value is not a dictionary");
    return root;
}

void readAppearance(const PlistValue& dictionary, const DocumentReader& reader,
                    WallpaperFileInfo& info) {
    if (!dictionary.isDictionary())
        fail("Appearance metadata is not a dictionary");
    info.lightIndex = reader.index(dictionary, "l");
    info.darkIndex = reader.index(dictionary, "d");
}

void readDocument(const DesktopProperty& property, WallpaperFileInfo& info) {
    const PlistValue root = decodeDocument(property);
    const std::size_t images = info.images.size();
    if (property.name == appearancePropertyName) {
        readAppearance(root, DocumentReader("Appearance metadata", images), info);
        return;
    }
    const bool solar = property.name == solarPropertyName;
    const DocumentReader reader(solar ? "Solar metadata" : "Hour metadata", images);
    if (const PlistValue* appearance = root.find("ap"))
        readAppearance(*appearance, reader.at("\"ap\""), info);
    const auto& records = reader.records(root, solar ? "si" : "ti");
    for (std::size_t n = 0; n < records.size(); ++n) {
        const auto record = reader.at("record " + std::to_string(n));
        const auto& values = records[n];
        if (solar) {
            info.solarFrames.push_back({record.index(values, "i"), record.number(values, "a"),
                                        record.number(values, "z"),
                                        record.optionalFlag(values, "o")});
            continue;
        }
        const double fraction = record.number(values, "t");
        if (!(fraction >= 0.0 && fraction <= 1.0))
            fail("Hour metadata record " + std::to_string(n) + ": \"t\" is " +
                 std::to_string(fraction) + ", not a fraction of the day between 0 and 1");
        info.hourFrames.push_back({record.index(values, "i"), fraction});
    }
}

int rank(const std::string& name) {
    if (name == solarPropertyName)
        return 0;
    return name == hourPropertyName ? 1 : 2;
}

} // namespace

struct WallpaperFile::Context {
    HeifContextPtr heif;
    std::vector<heif_item_id> ids; // top-level images in file order
};

WallpaperFile::WallpaperFile(const std::filesystem::path& path)
    : context_(std::make_unique<Context>()) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error))
        fail("No such file: " + path.string());
    context_->heif.reset(heif_context_alloc());
    if (!context_->heif)
        fail("Cannot start the HEIF reader");
    heif_context* heif = context_->heif.get();
    check(heif_context_read_from_file(heif, path.c_str(), nullptr), "Not a readable HEIF file");

    const int count = heif_context_get_number_of_top_level_images(heif);
    if (count <= 0)
        fail("The file holds no images");
    auto& ids = context_->ids;
    ids.resize(static_cast<std::size_t>(count));
    heif_context_get_list_of_top_level_image_IDs(heif, ids.data(), count);
    heif_item_id primary = 0;
    check(heif_context_get_primary_image_ID(heif, &primary), "The file has no primary image");

    std::string primaryXmp;
    for (int n = 0; n < count; ++n) {
        const auto handle = imageHandle(heif, ids[n]);
        const std::string xmp = xmpOf(handle.get());
        info_.images.push_back({heif_image_handle_get_width(handle.get()),
                                heif_image_handle_get_height(handle.get()), !xmp.empty(),
                                heif_image_handle_get_luma_bits_per_pixel(handle.get()),
                                heif_image_handle_has_alpha_channel(handle.get()) != 0,
                                describeColourProfile(handle.get())});
        if (ids[n] == primary) {
            info_.primaryIndex = n;
            primaryXmp = xmp;
        }
    }
    if (primaryXmp.empty())
        fail("The primary image carries no XMP metadata: not a dynamic wallpaper");
    auto properties = findDesktopProperties(primaryXmp);
    if (properties.empty())
        fail("The primary image's XMP has no apple_desktop:solar, apple_desktop:h24 or "
             "apple_desktop:apr property: not a dynamic wallpaper");
    std::stable_sort(properties.begin(), properties.end(),
                     [](const auto& a, const auto& b) { return rank(a.name) < rank(b.name); });
    for (const auto& property : properties) {
        if (std::find(info_.properties.begin(), info_.properties.end(), property.name) !=
            info_.properties.end())
            continue; // a repeated property: the first one counts
        info_.properties.push_back(property.name);
        readDocument(property, info_);
    }
    info_.kind = properties.front().name;
    info_.xmpForm =
        properties.front().form == DesktopProperty::Form::attribute ? "attribute" : "element";
}

WallpaperFile::~WallpaperFile() = default;
WallpaperFile::WallpaperFile(WallpaperFile&&) noexcept = default;
WallpaperFile& WallpaperFile::operator=(WallpaperFile&&) noexcept = default;

platform::PixelImage WallpaperFile::decodeImage(std::size_t index) const {
    if (index >= context_->ids.size())
        fail("The file has no image " + std::to_string(index));
    const auto handle = imageHandle(context_->heif.get(), context_->ids[index]);
    return decodeToSrgb(handle.get());
}

WallpaperFileInfo readWallpaper(const std::filesystem::path& path) {
    return WallpaperFile(path).info();
}

bool isDynamicWallpaper(const std::filesystem::path& path) noexcept {
    try {
        WallpaperFile file(path);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

} // namespace lumivesper::exporting
