#pragma once

#include "platform/pixel_image.h"

#include <string>

struct heif_image_handle;

namespace lumivesper::exporting {

// Decodes one image of an open HEIF file (libheif assembles grid images from their tiles) and
// converts it to sRGB through its ICC profile, or through the primaries of its nclx description,
// as 8-bit RGBA for editing. Deeper images are converted from their full depth. Throws
// WallpaperReadError.
platform::PixelImage decodeToSrgb(const heif_image_handle* handle);

// "ICC: " and the profile's own description, "nclx: primaries P, transfer T, matrix M", or empty
// when the image says nothing about its colours.
std::string describeColourProfile(const heif_image_handle* handle);

} // namespace lumivesper::exporting
