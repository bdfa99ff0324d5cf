#pragma once

#include "generation/base64.h"

#include <optional>
#include <string>

namespace lumivesper::generation {

// The result of every image call: the encoded image as the service sent it.
struct GeneratedImage {
    Bytes data;
    std::optional<std::string> contentType;

    bool operator==(const GeneratedImage&) const = default;
};

} // namespace lumivesper::generation
