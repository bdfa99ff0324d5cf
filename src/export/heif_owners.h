#pragma once

#include <libheif/heif.h>
#include <memory>

namespace lumivesper::exporting {

// Owners of libheif's handles, so that every way out releases them.
struct HeifContextDeleter {
    void operator()(heif_context* context) const { heif_context_free(context); }
};
struct HeifHandleDeleter {
    void operator()(heif_image_handle* handle) const { heif_image_handle_release(handle); }
};
struct HeifImageDeleter {
    void operator()(heif_image* image) const { heif_image_release(image); }
};
using HeifContextPtr = std::unique_ptr<heif_context, HeifContextDeleter>;
using HeifHandlePtr = std::unique_ptr<heif_image_handle, HeifHandleDeleter>;
using HeifImagePtr = std::unique_ptr<heif_image, HeifImageDeleter>;

} // namespace lumivesper::exporting
