#include "export/wallpaper_reader.h"

#include "export/bplist_reader.h"
#include "export/wallpaper_metadata.h"
#include "platform/base64.h"

#include <cstring>
#include <libheif/heif.h>
#include <memory>
#include <system_error>

namespace lumivesper::exporting {

namespace {

struct ContextDeleter {
    void operator()(heif_context* context) const { heif_context_free(context); }
};
struct HandleDeleter {
    void operator()(heif_image_handle* handle) const { heif_image_handle_release(handle); }
};
using HandlePtr = std::unique_ptr<heif_image_handle, HandleDeleter>;

[[noreturn]] void fail(const std::string& message) {
    throw WallpaperReadError(message);
}

void check(heif_error error, const std::string& what) {
    if (error.code != heif_error_Ok)
        fail(what + ": " + (error.message ? error.message : "unknown error"));
}

HandlePtr imageHandle(heif_context* context, heif_item_id id) {
    heif_image_handle* handle = nullptr;
    check(heif_context_get_image_handle(context, id, &handle), "Cannot open an image of the file");
    return HandlePtr(handle);
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

long long integerField(const PlistValue& record, const char* key, const std::string& where) {
    const PlistValue* value = record.find(key);
    if (!value || !value->isInteger())
        fail(where + ": \"" + key + "\" is missing or not an integer");
    return value->integer();
}

double realField(const PlistValue& record, const char* key, const std::string& where) {
    const PlistValue* value = record.find(key);
    if (!value || !value->isReal())
        fail(where + ": \"" + key + "\" is missing or not a real");
    return value->real();
}

void parseDocument(const DesktopProperty& property, WallpaperFileInfo& info) {
    info.kind = property.name;
    const auto bytes = platform::decodeBase64(property.value);
    if (!bytes)
        fail("The apple_desktop:" + property.name + " value is not valid base64");
    PlistValue root;
    try {
        root = readBinaryPlist(*bytes);
    } catch (const PlistReadError& error) {
        fail("The apple_desktop:" + property.name + " value is not a readable property list (" +
             error.what() + ")");
    }
    if (property.name == appearancePropertyName) {
        info.lightIndex = integerField(root, "l", "Appearance metadata");
        info.darkIndex = integerField(root, "d", "Appearance metadata");
        return;
    }
    const PlistValue* records = root.find("si");
    if (!records || !records->isArray())
        fail("Solar metadata has no \"si\" array");
    for (std::size_t n = 0; n < records->array().size(); ++n) {
        const auto& record = records->array()[n];
        const std::string where = "Solar metadata record " + std::to_string(n);
        info.solarFrames.push_back({integerField(record, "i", where), realField(record, "a", where),
                                    realField(record, "z", where),
                                    integerField(record, "o", where)});
    }
}

} // namespace

WallpaperFileInfo readWallpaper(const std::filesystem::path& path) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error))
        fail("No such file: " + path.string());
    std::unique_ptr<heif_context, ContextDeleter> context(heif_context_alloc());
    if (!context)
        fail("Cannot start the HEIF reader");
    check(heif_context_read_from_file(context.get(), path.c_str(), nullptr),
          "Not a readable HEIF file");

    WallpaperFileInfo info;
    const int count = heif_context_get_number_of_top_level_images(context.get());
    if (count <= 0)
        fail("The file holds no images");
    std::vector<heif_item_id> ids(static_cast<std::size_t>(count));
    heif_context_get_list_of_top_level_image_IDs(context.get(), ids.data(), count);
    heif_item_id primary = 0;
    check(heif_context_get_primary_image_ID(context.get(), &primary),
          "The file has no primary image");

    std::string primaryXmp;
    for (int n = 0; n < count; ++n) {
        const auto handle = imageHandle(context.get(), ids[n]);
        const std::string xmp = xmpOf(handle.get());
        info.images.push_back({heif_image_handle_get_width(handle.get()),
                               heif_image_handle_get_height(handle.get()), !xmp.empty()});
        if (ids[n] == primary) {
            info.primaryIndex = n;
            primaryXmp = xmp;
        }
    }
    if (primaryXmp.empty())
        fail("The primary image carries no XMP metadata: not a dynamic wallpaper");
    const auto property = findDesktopProperty(primaryXmp);
    if (!property)
        fail("The primary image's XMP has no apple_desktop:solar or apple_desktop:apr attribute: "
             "not a dynamic wallpaper");
    parseDocument(*property, info);
    return info;
}

} // namespace lumivesper::exporting
