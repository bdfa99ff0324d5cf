#include "export/hevc_frame_encoder.h"

#include <algorithm>
#include <array>
#include <memory>
#include <x265.h>

namespace lumivesper::exporting {

namespace {

constexpr int nalVps = 32;
constexpr int nalSps = 33;
constexpr int nalPps = 34;

const x265_api& api() {
    static const x265_api* const eightBit = x265_api_get(8);
    if (!eightBit)
        throw HevcEncodeError("no 8-bit HEVC encoder available");
    return *eightBit;
}

struct ParamDeleter {
    void operator()(x265_param* param) const { api().param_free(param); }
};
struct EncoderDeleter {
    void operator()(x265_encoder* encoder) const { api().encoder_close(encoder); }
};
struct PictureDeleter {
    void operator()(x265_picture* picture) const { api().picture_free(picture); }
};

void setParam(x265_param* param, const char* name, const std::string& value) {
    if (api().param_parse(param, name, value.c_str()) != 0)
        throw HevcEncodeError("encoder refused " + std::string(name) + "=" + value);
}

std::unique_ptr<x265_param, ParamDeleter> makeParams(const PlanarFrame& frame,
                                                      const HevcEncoderSettings& settings) {
    std::unique_ptr<x265_param, ParamDeleter> param(api().param_alloc());
    if (!param)
        throw HevcEncodeError("cannot allocate encoder parameters");
    const char* tune = settings.tune.empty() ? nullptr : settings.tune.c_str();
    if (api().param_default_preset(param.get(), settings.preset.c_str(), tune) != 0)
        throw HevcEncodeError("unknown preset " + settings.preset + "/" + settings.tune);
    param->logLevel = X265_LOG_NONE;
    // The encoder keeps coding-unit sizes process-wide, so every frame uses the same ones.
    setParam(param.get(), "ctu", std::to_string(PlanarFrame::codingTreeSize));
    setParam(param.get(), "min-cu-size", "8");
    param->sourceWidth = frame.codedWidth;
    param->sourceHeight = frame.codedHeight;
    param->internalCsp = frame.monochrome ? X265_CSP_I400 : X265_CSP_I420;
    param->fpsNum = 1;
    param->fpsDenom = 1;
    param->totalFrames = 1;
    param->keyframeMax = 1;
    param->bframes = 0;
    param->lookaheadDepth = 0;
    param->bRepeatHeaders = 0;
    param->bAnnexB = 0; // length-prefixed NAL units: what the file stores
    param->bEmitInfoSEI = 0;
    param->frameNumThreads = 1;
    setParam(param.get(), "pools", std::to_string(std::max(1, settings.threads)));
    setParam(param.get(), "crf", std::to_string(settings.constantRateFactor));
    for (const auto& [name, value] : settings.options)
        setParam(param.get(), name.c_str(), value);
    // The same colour description as the file's, for decoders that read only the stream.
    param->vui.bEnableVideoSignalTypePresentFlag = 1;
    param->vui.bEnableVideoFullRangeFlag = ColourDescription::fullRange;
    param->vui.bEnableColorDescriptionPresentFlag = 1;
    param->vui.colorPrimaries = ColourDescription::primaries;
    param->vui.transferCharacteristics = ColourDescription::transfer;
    param->vui.matrixCoeffs = ColourDescription::matrix;
    return param;
}

int nalType(const x265_nal& nal) {
    return static_cast<int>(nal.type);
}

// A NAL unit without its 4-byte length prefix.
std::vector<std::uint8_t> withoutPrefix(const x265_nal& nal) {
    if (nal.sizeBytes < 4)
        throw HevcEncodeError("encoder returned a truncated NAL unit");
    return {nal.payload + 4, nal.payload + nal.sizeBytes};
}

// The raw bits of a NAL unit, emulation prevention bytes removed.
std::vector<std::uint8_t> unescaped(const std::vector<std::uint8_t>& nal) {
    std::vector<std::uint8_t> bits;
    bits.reserve(nal.size());
    int zeros = 0;
    for (std::uint8_t byte : nal) {
        if (zeros >= 2 && byte == 3) {
            zeros = 0;
            continue;
        }
        zeros = byte == 0 ? zeros + 1 : 0;
        bits.push_back(byte);
    }
    return bits;
}

void appendBigEndian16(std::vector<std::uint8_t>& out, std::size_t value) {
    out.push_back(static_cast<std::uint8_t>(value >> 8));
    out.push_back(static_cast<std::uint8_t>(value));
}

// The decoder configuration record from the three parameter sets. Profile, tier and level are
// copied from the sequence parameter set, whose first bytes hold them at fixed places for a
// single-layer stream.
std::vector<std::uint8_t> decoderConfiguration(const std::vector<std::uint8_t>& vps,
                                               const std::vector<std::uint8_t>& sps,
                                               const std::vector<std::uint8_t>& pps,
                                               bool monochrome) {
    const auto bits = unescaped(sps);
    // 2 bytes NAL header, 1 byte ids and sub-layer count, 12 bytes general profile/tier/level.
    if (bits.size() < 15 || ((bits[2] >> 1) & 7) != 0)
        throw HevcEncodeError("unexpected sequence parameter set");
    std::vector<std::uint8_t> record;
    record.push_back(1);                                      // configurationVersion
    record.insert(record.end(), bits.begin() + 3, bits.begin() + 15); // profile .. level
    record.push_back(0xF0);                                   // min_spatial_segmentation_idc 0
    record.push_back(0x00);
    record.push_back(0xFC);                                   // parallelismType 0
    record.push_back(static_cast<std::uint8_t>(0xFC | (monochrome ? 0 : 1))); // chroma format
    record.push_back(0xF8);                                   // luma bit depth 8
    record.push_back(0xF8);                                   // chroma bit depth 8
    appendBigEndian16(record, 0);                             // avgFrameRate
    // constantFrameRate 0, one temporal layer, nested, 4-byte lengths.
    record.push_back((1 << 3) | (1 << 2) | 3);
    record.push_back(3);
    for (const auto* nal : {&vps, &sps, &pps}) {
        record.push_back(static_cast<std::uint8_t>(0x80 | (((*nal)[0] >> 1) & 0x3F)));
        appendBigEndian16(record, 1);
        appendBigEndian16(record, nal->size());
        record.insert(record.end(), nal->begin(), nal->end());
    }
    return record;
}

} // namespace

HevcEncoderSettings encoderSettingsForQuality(int quality) {
    HevcEncoderSettings settings;
    const int clamped = std::clamp(quality, 0, 100);
    settings.constantRateFactor =
        std::clamp(settings.constantRateFactor + (defaultQuality - clamped) / 2.0, 0.0, 51.0);
    return settings;
}

HevcEncoderSettings withPresetAndOptions(HevcEncoderSettings settings, const std::string& text) {
    std::size_t start = 0;
    for (bool first = true; start <= text.size(); first = false) {
        const std::size_t end = std::min(text.find('+', start), text.size());
        const std::string part = text.substr(start, end - start);
        start = end + 1;
        if (first) {
            settings.preset = part;
            continue;
        }
        const std::size_t equals = part.find('=');
        if (equals == std::string::npos)
            throw HevcEncodeError("option without a value: " + part);
        settings.options.emplace_back(part.substr(0, equals), part.substr(equals + 1));
    }
    return settings;
}

HevcImage encodeHevcImage(const PlanarFrame& frame, const HevcEncoderSettings& settings) {
    const auto param = makeParams(frame, settings);
    std::unique_ptr<x265_encoder, EncoderDeleter> encoder(api().encoder_open(param.get()));
    if (!encoder)
        throw HevcEncodeError("the encoder refused the frame's parameters");

    std::vector<std::uint8_t> vps, sps, pps;
    HevcImage image;
    auto collect = [&](x265_nal* nals, std::uint32_t count) {
        for (std::uint32_t i = 0; i < count; ++i) {
            switch (nalType(nals[i])) {
            case nalVps: vps = withoutPrefix(nals[i]); break;
            case nalSps: sps = withoutPrefix(nals[i]); break;
            case nalPps: pps = withoutPrefix(nals[i]); break;
            default:
                image.data.insert(image.data.end(), nals[i].payload,
                                  nals[i].payload + nals[i].sizeBytes);
            }
        }
    };

    x265_nal* nals = nullptr;
    std::uint32_t count = 0;
    if (api().encoder_headers(encoder.get(), &nals, &count) < 0)
        throw HevcEncodeError("the encoder wrote no parameter sets");
    collect(nals, count);

    std::unique_ptr<x265_picture, PictureDeleter> picture(api().picture_alloc());
    api().picture_init(param.get(), picture.get());
    picture->colorSpace = param->internalCsp;
    picture->bitDepth = 8;
    // The encoder only reads the planes.
    picture->planes[0] = const_cast<std::uint8_t*>(frame.luma.data());
    picture->stride[0] = frame.codedWidth;
    if (!frame.monochrome) {
        picture->planes[1] = const_cast<std::uint8_t*>(frame.blueDifference.data());
        picture->planes[2] = const_cast<std::uint8_t*>(frame.redDifference.data());
        picture->stride[1] = picture->stride[2] = frame.codedWidth / 2;
    }
    if (api().encoder_encode(encoder.get(), &nals, &count, picture.get(), nullptr) < 0)
        throw HevcEncodeError("the encoder failed on the frame");
    collect(nals, count);
    // Drain: with no lookahead the picture usually comes out at once, but the API promises nothing.
    int flushed = 0;
    while ((flushed = api().encoder_encode(encoder.get(), &nals, &count, nullptr, nullptr)) > 0)
        collect(nals, count);
    if (flushed < 0)
        throw HevcEncodeError("the encoder failed while finishing the frame");
    if (vps.empty() || sps.empty() || pps.empty() || image.data.empty())
        throw HevcEncodeError("the encoder returned an incomplete picture");
    image.decoderConfiguration = decoderConfiguration(vps, sps, pps, frame.monochrome);
    return image;
}

} // namespace lumivesper::exporting
