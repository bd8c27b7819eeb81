#include "tools/kt7/files/format.h"

#include "tools/kt7/files/metadata.h"
#include "tools/kt7/files/sampleScale.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>

namespace kt7::tool {
namespace {

constexpr const FileFormat* formats[] = {&jpegFormat, &pngFormat,  &tiffFormat, &webpFormat,
#ifdef KT7_HAVE_HEIF
                                         &heicFormat, &avifFormat,
#endif
#ifdef KT7_HAVE_JXL
                                         &jxlFormat
#endif
};

constexpr const char* heifBrands[] = {"heic", "heix", "heim", "heis", "mif1",
                                      "msf1", "hevc", "hevx", "avif", "avis"};

void changeBits(Photo& photo, std::int32_t bits) {
    if (bits == photo.bits)
        return;
    const Rescale scaled(photo.white(), (1u << bits) - 1);
    std::ranges::transform(photo.samples, photo.samples.begin(), scaled);
    std::ranges::transform(photo.alpha, photo.alpha.begin(), scaled);
    photo.bits = bits;
}

/// Colours as they are without the share of the background.
void divideByAlpha(Photo& photo) {
    const auto channels = static_cast<std::size_t>(photo.channels);
    for (std::size_t i = 0; i < photo.alpha.size(); ++i)
        for (std::size_t c = 0; c < channels; ++c) {
            std::uint16_t& sample = photo.samples[i * channels + c];
            const std::uint32_t alpha = photo.alpha[i];
            if (alpha > 0)
                sample = rescale(sample, alpha, photo.white());
        }
    photo.premultiplied = false;
}

void requireSamples(const Photo& photo) {
    const auto pixels = static_cast<std::size_t>(photo.pixels());
    if (photo.samples.size() != pixels * static_cast<std::size_t>(photo.channels) ||
        (!photo.alpha.empty() && photo.alpha.size() != pixels))
        throw CodecError("has not as many samples as pixels");
}

/// What a build without one of the libraries says of a file that it would take.
std::string unknownFormat(std::span<const std::uint8_t> bytes) {
    const auto holds = [&](std::size_t at, std::string_view text) {
        return bytes.size() >= at + text.size() &&
               std::memcmp(bytes.data() + at, text.data(), text.size()) == 0;
    };
    const bool jxl = holds(0, "\xFF\x0A") || holds(4, "JXL \r\n");
    const bool heif = holds(4, "ftyp") && std::ranges::any_of(heifBrands, [&](const char* brand) {
                          return holds(8, brand);
                      });
    if (jxl || heif)
        return std::string("is a picture in ") + (jxl ? "JPEG XL" : "HEIC or AVIF") +
               ", which this kt7 was built without";
    return "is not an image in a known format";
}

} // namespace

std::span<const FileFormat* const> fileFormats() {
    return formats;
}

std::string formatNames() {
    std::string names;
    for (const FileFormat* each : fileFormats())
        names += std::string(names.empty() ? "" : ", ") + each->name;
    return names;
}

const FileFormat* formatNamed(std::string_view nameOrExtension) {
    std::string name(nameOrExtension);
    std::ranges::transform(name, name.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (const FileFormat* format : formats)
        if (name == format->name ||
            std::ranges::any_of(format->extensions, [&](const char* e) { return name == e; }))
            return format;
    return nullptr;
}

const FileFormat* formatOf(std::span<const std::uint8_t> bytes) {
    const auto found = std::ranges::find_if(
        formats, [&](const FileFormat* format) { return format->isIn(bytes); });
    return found == std::end(formats) ? nullptr : *found;
}

Photo decode(std::span<const std::uint8_t> bytes, Depth depth) {
    if (bytes.empty())
        throw CodecError("is empty");
    const FileFormat* const format = formatOf(bytes);
    if (format == nullptr)
        throw CodecError(unknownFormat(bytes));
    Photo photo = format->decode(bytes, depth);
    if (depth == Depth::everything) {
        requireSamples(photo);
        tidyMetadata(photo);
    }
    return photo;
}

Coded encode(const Photo& photo, const FileFormat& format, int quality) {
    if (std::max(photo.width, photo.height) > format.largestSide)
        throw CodecError(std::string(format.name) + " holds at most " +
                         std::to_string(format.largestSide) + " pixels a side");
    Photo fitting = photo;
    std::vector<std::string> lost;
    if (photo.premultiplied && !format.holdsPremultiplied)
        divideByAlpha(fitting);
    changeBits(fitting, format.bitsFor(photo.bits));
    if (!format.holdsAlpha && !photo.alpha.empty()) {
        fitting.alpha.clear();
        if (std::ranges::any_of(photo.alpha, [&](std::uint32_t a) { return a < photo.white(); }))
            lost.push_back("alpha");
    }
    fitMetadata(fitting, format, lost);
    Coded coded = format.encode(fitting, quality);
    coded.format = format.name;
    coded.lost.insert(coded.lost.begin(), lost.begin(), lost.end());
    return coded;
}

} // namespace kt7::tool
