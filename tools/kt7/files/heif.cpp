// HEIC and AVIF, by libheif.
#include "tools/kt7/defaults.h"
#include "tools/kt7/files/format.h"
#include "tools/kt7/files/limits.h"
#include "tools/kt7/files/silence.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>

#include <libheif/heif.h>

namespace kt7::tool {
namespace {

template <class T, void (*release)(T*)>
struct Release {
    void operator()(T* object) const { release(object); }
};
template <class T, void (*release)(T*)>
using Owned = std::unique_ptr<T, Release<T, release>>;

void releaseHandle(heif_image_handle* handle) {
    heif_image_handle_release(handle);
}
void releaseImage(heif_image* image) {
    heif_image_release(image);
}
using Context = Owned<heif_context, heif_context_free>;
using Handle = Owned<heif_image_handle, releaseHandle>;
using Image = Owned<heif_image, releaseImage>;
using Encoder = Owned<heif_encoder, heif_encoder_release>;
using EncodingOptions = Owned<heif_encoding_options, heif_encoding_options_free>;
using Nclx = Owned<heif_color_profile_nclx, heif_nclx_color_profile_free>;

constexpr std::size_t exifOffsetBytes = 4; // before the TIFF stream

void check(const heif_error& error, const char* what) {
    if (error.code == heif_error_Memory_allocation_error)
        throw std::bad_alloc();
    if (error.code != heif_error_Ok)
        throw CodecError(std::string(what) + error.message);
}

/// Whatever the brand says: frames stand in tracks, and those in a box of the whole file.
bool isSequence(std::span<const std::uint8_t> bytes) {
    constexpr std::size_t headBytes = 8, longHeadBytes = 16;
    const auto number = [&](std::size_t at, std::size_t size) {
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < size; ++i)
            value = value << 8 | bytes[at + i];
        return value;
    };
    while (bytes.size() >= headBytes) {
        if (std::memcmp(bytes.data() + 4, "moov", 4) == 0)
            return true;
        std::uint64_t size = number(0, 4);
        if (size == 1 && bytes.size() >= longHeadBytes)
            size = number(headBytes, longHeadBytes - headBytes);
        if (size < headBytes || size > bytes.size()) // 0: up to the end
            return false;
        bytes = bytes.subspan(static_cast<std::size_t>(size));
    }
    return false;
}

Bytes blockOf(const heif_image_handle* handle, heif_item_id id) {
    const std::size_t size = heif_image_handle_get_metadata_size(handle, id);
    if (size > mostMetadataBytes)
        throw CodecError("has more metadata than a photo needs");
    Bytes bytes(size);
    check(heif_image_handle_get_metadata(handle, id, bytes.data()), "is damaged: ");
    return bytes;
}

void takeMetadata(const heif_image_handle* handle, Metadata& metadata) {
    const int count = heif_image_handle_get_number_of_metadata_blocks(handle, nullptr);
    std::vector<heif_item_id> ids(static_cast<std::size_t>(std::max(count, 0)));
    heif_image_handle_get_list_of_metadata_block_IDs(handle, nullptr, ids.data(), count);
    for (const heif_item_id id : ids) {
        const std::string type = heif_image_handle_get_metadata_type(handle, id);
        const char* const content = heif_image_handle_get_metadata_content_type(handle, id);
        if (type == "Exif" && metadata.exif.empty()) {
            const Bytes block = blockOf(handle, id);
            if (block.size() < exifOffsetBytes)
                continue;
            std::size_t offset = 0;
            for (std::size_t i = 0; i < exifOffsetBytes; ++i)
                offset = offset << 8 | block[i];
            offset = std::min(offset + exifOffsetBytes, block.size());
            metadata.exif.assign(block.begin() + static_cast<std::ptrdiff_t>(offset), block.end());
        } else if (content != nullptr && std::strcmp(content, "application/rdf+xml") == 0) {
            metadata.xmp = blockOf(handle, id);
        }
    }
    if (const std::size_t size = heif_image_handle_get_raw_color_profile_size(handle); size > 0) {
        metadata.icc.resize(size);
        check(heif_image_handle_get_raw_color_profile(handle, metadata.icc.data()), "is damaged: ");
        return;
    }
    heif_color_profile_nclx* given = nullptr;
    if (heif_image_handle_get_nclx_color_profile(handle, &given).code != heif_error_Ok)
        return;
    const Nclx nclx(given);
    const bool usual =
        (nclx->color_primaries == heif_color_primaries_ITU_R_BT_709_5 ||
         nclx->color_primaries == heif_color_primaries_unspecified) &&
        (nclx->transfer_characteristics == heif_transfer_characteristic_IEC_61966_2_1 ||
         nclx->transfer_characteristics == heif_transfer_characteristic_unspecified ||
         nclx->transfer_characteristics == heif_transfer_characteristic_ITU_R_BT_709_5);
    if (!usual)
        metadata.extras.push_back({"colour code points",
                                   {static_cast<std::uint8_t>(nclx->color_primaries),
                                    static_cast<std::uint8_t>(nclx->transfer_characteristics)}});
}

Photo decodeHeif(std::span<const std::uint8_t> bytes, Depth depth, const FileFormat& format) {
    const Silence silence;
    if (isSequence(bytes))
        throw CodecError("is a sequence of pictures; only single pictures are denoised");
    const Context context(heif_context_alloc());
    check(heif_context_read_from_memory_without_copy(context.get(), bytes.data(), bytes.size(),
                                                     nullptr),
          "is damaged or cut short: ");
    const int pictures = heif_context_get_number_of_top_level_images(context.get());
    if (pictures > 1)
        throw CodecError("holds " + std::to_string(pictures) +
                         " pictures; only files of one picture are denoised");
    heif_image_handle* first = nullptr;
    check(heif_context_get_primary_image_handle(context.get(), &first),
          "is damaged or cut short: ");
    const Handle handle(first);
    const bool alpha = heif_image_handle_has_alpha_channel(handle.get()) != 0;
    Photo photo;
    photo.width = heif_image_handle_get_width(handle.get());
    photo.height = heif_image_handle_get_height(handle.get());
    photo.bits = std::clamp(heif_image_handle_get_luma_bits_per_pixel(handle.get()), 8, 16);
    photo.coding.format = format.name;
    photo.coding.lossless = false;
    const int channels = alpha ? 4 : 3;
    checkSize(static_cast<std::uint64_t>(std::max(photo.width, 0)),
              static_cast<std::uint64_t>(std::max(photo.height, 0)), channels, bytes.size());
    if (depth == Depth::header)
        return photo;

    heif_image* decoded = nullptr;
    const bool wide = photo.bits > 8;
    const heif_chroma layout =
        wide ? (alpha ? heif_chroma_interleaved_RRGGBBAA_LE : heif_chroma_interleaved_RRGGBB_LE)
             : (alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB);
    check(heif_decode_image(handle.get(), &decoded, heif_colorspace_RGB, layout, nullptr),
          "is damaged or cut short: ");
    const Image image(decoded);
    photo.width = heif_image_get_width(image.get(), heif_channel_interleaved);
    photo.height = heif_image_get_height(image.get(), heif_channel_interleaved);
    photo.bits = heif_image_get_bits_per_pixel_range(image.get(), heif_channel_interleaved);
    int stride = 0;
    const std::uint8_t* plane =
        heif_image_get_plane_readonly(image.get(), heif_channel_interleaved, &stride);
    if (plane == nullptr || photo.width < 1 || photo.height < 1 || photo.bits < 8 ||
        photo.bits > 16)
        throw CodecError("is damaged or cut short");
    photo.premultiplied = alpha && heif_image_handle_is_premultiplied_alpha(handle.get()) != 0;
    photo.samples.reserve(static_cast<std::size_t>(photo.pixels()) * 3);
    for (int y = 0; y < photo.height; ++y) {
        const std::uint8_t* in = plane + std::ptrdiff_t{y} * stride;
        const auto next = [&] {
            const std::uint32_t low = *in++;
            const std::uint32_t sample = wide ? low | std::uint32_t{*in++} << 8 : low;
            return static_cast<std::uint16_t>(std::min(sample, photo.white()));
        };
        for (int x = 0; x < photo.width; ++x) {
            for (int c = 0; c < 3; ++c)
                photo.samples.push_back(next());
            if (alpha)
                photo.alpha.push_back(next());
        }
    }
    // The picture has been turned as the file asks; what Exif says of that no longer holds.
    takeMetadata(handle.get(), photo.metadata);
    constexpr int filter = LIBHEIF_AUX_IMAGE_FILTER_OMIT_ALPHA;
    if (heif_image_handle_get_number_of_auxiliary_images(handle.get(), filter) > 0 ||
        heif_image_handle_get_number_of_depth_images(handle.get()) > 0)
        photo.remarks.push_back("its auxiliary pictures, such as depth or a gain map");
    return photo;
}

Image imageOf(const Photo& photo) {
    const bool alpha = !photo.alpha.empty(), wide = photo.bits > 8;
    const heif_chroma layout =
        wide ? (alpha ? heif_chroma_interleaved_RRGGBBAA_LE : heif_chroma_interleaved_RRGGBB_LE)
             : (alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB);
    heif_image* made = nullptr;
    check(heif_image_create(photo.width, photo.height, heif_colorspace_RGB, layout, &made), "");
    Image image(made);
    check(heif_image_add_plane(image.get(), heif_channel_interleaved, photo.width, photo.height,
                               photo.bits),
          "");
    int stride = 0;
    std::uint8_t* const plane =
        heif_image_get_plane(image.get(), heif_channel_interleaved, &stride);
    const std::size_t repeats = photo.channels == 1 ? 3 : 1;
    const auto colours = static_cast<std::size_t>(photo.channels);
    std::size_t pixel = 0;
    for (int y = 0; y < photo.height; ++y) {
        std::uint8_t* out = plane + std::ptrdiff_t{y} * stride;
        const auto put = [&](std::uint16_t sample) {
            *out++ = static_cast<std::uint8_t>(sample & 0xFF);
            if (wide)
                *out++ = static_cast<std::uint8_t>(sample >> 8);
        };
        for (int x = 0; x < photo.width; ++x, ++pixel) {
            for (std::size_t c = 0; c < colours * repeats; ++c)
                put(photo.samples[pixel * colours + c / repeats]);
            if (alpha)
                put(photo.alpha[pixel]);
        }
    }
    return image;
}

Coded encodeHeif(const Photo& photo, int quality, heif_compression_format compression,
                 const char* chroma) {
    const Silence silence;
    Coded coded{.bits = photo.bits, .lossless = false};
    coded.quality = quality == 0 ? defaults::lossyQuality : quality;
    coded.subsampling = std::strcmp(chroma, "444") == 0 ? "4:4:4" : "4:2:0";
    const Context context(heif_context_alloc());
    heif_encoder* found = nullptr;
    check(heif_context_get_encoder_for_format(context.get(), compression, &found),
          "no coder is installed: ");
    const Encoder encoder(found);
    check(heif_encoder_set_lossy_quality(encoder.get(), coded.quality), "");
    heif_encoder_set_parameter_string(encoder.get(), "chroma", chroma);

    const Image image = imageOf(photo);
    const Metadata& metadata = photo.metadata;
    if (!metadata.icc.empty())
        check(heif_image_set_raw_color_profile(image.get(), "prof", metadata.icc.data(),
                                               metadata.icc.size()),
              "");
    const EncodingOptions options(heif_encoding_options_alloc());
    options->image_orientation = static_cast<heif_orientation>(metadata.orientation);
    const Nclx nclx(heif_nclx_color_profile_alloc());
    for (const Extra& extra : metadata.extras)
        if (extra.bytes.size() == 2 && extra.name == "colour code points") {
            heif_nclx_color_profile_set_color_primaries(nclx.get(), extra.bytes[0]);
            heif_nclx_color_profile_set_transfer_characteristics(nclx.get(), extra.bytes[1]);
            options->output_nclx_profile = nclx.get();
        }
    heif_image_handle* written = nullptr;
    check(heif_context_encode_image(context.get(), image.get(), encoder.get(), options.get(),
                                    &written),
          "");
    const Handle handle(written);
    if (!metadata.exif.empty())
        check(heif_context_add_exif_metadata(context.get(), handle.get(), metadata.exif.data(),
                                             static_cast<int>(metadata.exif.size())),
              "");
    if (!metadata.xmp.empty())
        check(heif_context_add_XMP_metadata(context.get(), handle.get(), metadata.xmp.data(),
                                            static_cast<int>(metadata.xmp.size())),
              "");
    heif_writer writer{1, [](heif_context*, const void* data, std::size_t size, void* user) {
                           const auto* bytes = static_cast<const std::uint8_t*>(data);
                           heif_error error{heif_error_Ok, heif_suberror_Unspecified, "ok"};
                           try {
                               static_cast<Bytes*>(user)->assign(bytes, bytes + size);
                           } catch (const std::bad_alloc&) {
                               error.code = heif_error_Memory_allocation_error;
                           }
                           return error;
                       }};
    check(heif_context_write(context.get(), &writer, &coded.bytes), "");
    return coded;
}

bool hasBrand(std::span<const std::uint8_t> bytes, std::initializer_list<const char*> brands) {
    if (bytes.size() < 12 || std::memcmp(bytes.data() + 4, "ftyp", 4) != 0)
        return false;
    const std::string main(reinterpret_cast<const char*>(bytes.data()) + 8, 4);
    return std::ranges::find(brands, main) != brands.end();
}

constexpr const char* heicExtensions[] = {"heic", "heif", "hif"};
constexpr const char* avifExtensions[] = {"avif"};

} // namespace

const FileFormat heicFormat{
    .name = "heic",
    .extensions = heicExtensions,
    .isIn =
        [](std::span<const std::uint8_t> bytes) {
            return hasBrand(bytes,
                            {"heic", "heix", "heim", "heis", "mif1", "msf1", "hevc", "hevx"});
        },
    .holdsAlpha = true,
    .holdsPremultiplied = false,
    .holdsIptc = false,
    .holdsTexts = false,
    .holdsDensity = false,
    .largestSide = 16384,
    // Players know 8 and 10 bits at a quarter of the colour.
    .bitsFor = [](std::int32_t bits) { return std::min(bits, 10) > 8 ? 10 : 8; },
    .decode = [](std::span<const std::uint8_t> bytes,
                 Depth depth) { return decodeHeif(bytes, depth, heicFormat); },
    .encode = [](const Photo& photo,
                 int quality) { return encodeHeif(photo, quality, heif_compression_HEVC, "420"); }};

const FileFormat avifFormat{
    .name = "avif",
    .extensions = avifExtensions,
    .isIn =
        [](std::span<const std::uint8_t> bytes) {
            return hasBrand(bytes, {"avif", "avis"});
        },
    .holdsAlpha = true,
    .holdsPremultiplied = false,
    .holdsIptc = false,
    .holdsTexts = false,
    .holdsDensity = false,
    .largestSide = 65536,
    .bitsFor = [](std::int32_t bits) { return bits > 10  ? 12
                                              : bits > 8 ? 10
                                                         : 8; },
    .decode = [](std::span<const std::uint8_t> bytes,
                 Depth depth) { return decodeHeif(bytes, depth, avifFormat); },
    .encode = [](const Photo& photo,
                 int quality) { return encodeHeif(photo, quality, heif_compression_AV1, "444"); }};

} // namespace kt7::tool
