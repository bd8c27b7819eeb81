// WebP, by libwebp.
#include "tools/kt7/defaults.h"
#include "tools/kt7/files/format.h"
#include "tools/kt7/files/limits.h"

#include <cstring>
#include <memory>

#include <webp/decode.h>
#include <webp/demux.h>
#include <webp/encode.h>
#include <webp/mux.h>

namespace kt7::tool {
namespace {

constexpr int lossy = 1;

using Demuxer = std::unique_ptr<WebPDemuxer, decltype(&WebPDemuxDelete)>;
using Mux = std::unique_ptr<WebPMux, decltype(&WebPMuxDelete)>;

Bytes chunkOf(const WebPDemuxer* demuxer, const char* name) {
    WebPChunkIterator chunk{};
    Bytes bytes;
    if (WebPDemuxGetChunk(demuxer, name, 1, &chunk) != 0)
        bytes.assign(chunk.chunk.bytes, chunk.chunk.bytes + chunk.chunk.size);
    WebPDemuxReleaseChunkIterator(&chunk);
    return bytes;
}

Photo decodeWebp(std::span<const std::uint8_t> bytes, Depth depth) {
    WebPBitstreamFeatures features{};
    if (WebPGetFeatures(bytes.data(), bytes.size(), &features) != VP8_STATUS_OK)
        throw CodecError("is damaged or cut short");
    if (features.has_animation != 0)
        throw CodecError("is an animation; only single pictures are denoised");
    const int channels = features.has_alpha != 0 ? 4 : 3;
    checkSize(static_cast<std::uint64_t>(features.width),
              static_cast<std::uint64_t>(features.height), channels, bytes.size());
    Photo photo;
    photo.width = features.width;
    photo.height = features.height;
    photo.coding.format = "webp";
    photo.coding.lossless = features.format != lossy;
    if (depth == Depth::header)
        return photo;

    const WebPData data{bytes.data(), bytes.size()};
    const Demuxer demuxer(WebPDemux(&data), &WebPDemuxDelete);
    if (!demuxer)
        throw CodecError("is damaged or cut short");
    photo.metadata.orientation = 0;
    photo.metadata.icc = chunkOf(demuxer.get(), "ICCP");
    photo.metadata.exif = chunkOf(demuxer.get(), "EXIF");
    photo.metadata.xmp = chunkOf(demuxer.get(), "XMP ");

    const auto pixels = static_cast<std::size_t>(photo.pixels());
    Bytes image(pixels * static_cast<std::size_t>(channels));
    const auto* done = (channels == 4 ? WebPDecodeRGBAInto : WebPDecodeRGBInto)(
        bytes.data(), bytes.size(), image.data(), image.size(), photo.width * channels);
    if (done == nullptr)
        throw CodecError("is damaged or cut short");
    photo.samples.resize(pixels * 3);
    photo.alpha.resize(channels == 4 ? pixels : 0);
    const std::uint8_t* in = image.data();
    for (std::size_t i = 0; i < pixels; ++i) {
        for (std::size_t c = 0; c < 3; ++c)
            photo.samples[3 * i + c] = *in++;
        if (channels == 4)
            photo.alpha[i] = *in++;
    }
    return photo;
}

const char* reasonOf(WebPEncodingError error) {
    switch (error) {
    case VP8_ENC_ERROR_OUT_OF_MEMORY:
    case VP8_ENC_ERROR_BITSTREAM_OUT_OF_MEMORY:
        return "not enough memory";
    case VP8_ENC_ERROR_PARTITION0_OVERFLOW:
    case VP8_ENC_ERROR_PARTITION_OVERFLOW:
        return "it holds too much detail for WebP; choose a lower --quality";
    default:
        return "the coder failed";
    }
}

/// The picture without metadata.
struct Picture {
    WebPPicture picture;
    WebPMemoryWriter writer;

    Picture() {
        WebPPictureInit(&picture);
        WebPMemoryWriterInit(&writer);
        picture.writer = WebPMemoryWrite;
        picture.custom_ptr = &writer;
    }
    ~Picture() {
        WebPPictureFree(&picture);
        WebPMemoryWriterClear(&writer);
    }
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;
};

void import(const Photo& photo, WebPPicture& picture) {
    picture.use_argb = 1;
    picture.width = photo.width;
    picture.height = photo.height;
    if (WebPPictureAlloc(&picture) == 0)
        throw std::bad_alloc();
    const bool grey = photo.channels == 1;
    std::size_t pixel = 0;
    for (int y = 0; y < photo.height; ++y) {
        std::uint32_t* out = picture.argb + std::ptrdiff_t{y} * picture.argb_stride;
        for (int x = 0; x < photo.width; ++x, ++pixel) {
            const std::uint16_t* in = &photo.samples[pixel * (grey ? 1 : 3)];
            const std::uint32_t alpha = photo.alpha.empty() ? 255 : photo.alpha[pixel];
            *out++ = alpha << 24 | std::uint32_t{in[0]} << 16 |
                     std::uint32_t{in[grey ? 0 : 1]} << 8 | in[grey ? 0 : 2];
        }
    }
}

Coded encodeWebp(const Photo& photo, int quality) {
    const bool lossless = quality == 0 && photo.coding.format == "webp" && photo.coding.lossless;
    Coded coded{.lossless = lossless};
    coded.quality = lossless ? 0 : quality == 0 ? defaults::lossyQuality : quality;
    coded.subsampling = lossless ? "" : "4:2:0";
    WebPConfig config;
    WebPConfigInit(&config);
    config.lossless = lossless ? 1 : 0;
    config.exact = 1; // colour under transparent pixels too
    config.quality = lossless ? 75.0f : static_cast<float>(coded.quality); // 75: effort
    config.use_sharp_yuv = 1;
    Picture coder;
    import(photo, coder.picture);
    if (WebPEncode(&config, &coder.picture) == 0)
        throw CodecError(reasonOf(coder.picture.error_code));

    const Mux mux(WebPMuxNew(), &WebPMuxDelete);
    const WebPData image{coder.writer.mem, coder.writer.size};
    bool done = mux && WebPMuxSetImage(mux.get(), &image, 0) == WEBP_MUX_OK;
    const auto add = [&](const char* name, const Bytes& bytes) {
        const WebPData data{bytes.data(), bytes.size()};
        if (!bytes.empty())
            done = done && WebPMuxSetChunk(mux.get(), name, &data, 0) == WEBP_MUX_OK;
    };
    add("ICCP", photo.metadata.icc);
    add("EXIF", photo.metadata.exif);
    add("XMP ", photo.metadata.xmp);
    WebPData file{};
    if (!done || WebPMuxAssemble(mux.get(), &file) != WEBP_MUX_OK)
        throw std::bad_alloc();
    coded.bytes.assign(file.bytes, file.bytes + file.size);
    WebPDataClear(&file);
    return coded;
}

constexpr const char* extensions[] = {"webp"};

} // namespace

const FileFormat webpFormat{.name = "webp",
                            .extensions = extensions,
                            .isIn =
                                [](std::span<const std::uint8_t> bytes) {
                                    return bytes.size() >= 12 &&
                                           std::memcmp(bytes.data(), "RIFF", 4) == 0 &&
                                           std::memcmp(bytes.data() + 8, "WEBP", 4) == 0;
                                },
                            .holdsAlpha = true,
                            .holdsPremultiplied = false,
                            .holdsIptc = false,
                            .holdsTexts = false,
                            .holdsDensity = false,
                            .largestSide = WEBP_MAX_DIMENSION,
                            .bitsFor = [](std::int32_t) { return std::int32_t{8}; },
                            .decode = decodeWebp,
                            .encode = encodeWebp};

} // namespace kt7::tool
