// TIFF, by the reader of the tool, and what that wants from its other files: this page has no
// library for the metadata of a TIFF.
#include <algorithm>
#include <string>

#include "hosts/web/src/Photo.h"
#include "tools/kt7/files/limits.h"
#include "tools/kt7/files/metadata.h"

namespace kt7::tool {

std::uint64_t availableMemory() {
    return std::uint64_t{1} << 32; // what WebAssembly can address
}

void checkSize(std::uint64_t width, std::uint64_t height, int, std::size_t) {
    web::Photo::checkSize(static_cast<std::int64_t>(width), static_cast<std::int64_t>(height));
}

void takeTiffMetadata(std::span<const std::uint8_t>, Photo& photo) {
    photo.remarks.emplace_back("Exif, XMP and IPTC, where the TIFF has them");
}

Bytes withTiffMetadata(Bytes file, const Metadata&, std::vector<std::string>&) {
    return file;
}

} // namespace kt7::tool

namespace kt7::web {
namespace {

template <class Sample>
void copySamples(const tool::Photo& from, Photo& to) {
    const auto colours = static_cast<std::size_t>(from.channels);
    const auto pixels = static_cast<std::size_t>(from.pixels());
    const std::uint32_t white = from.white();
    auto* out = reinterpret_cast<Sample*>(to.samples.data());
    for (std::size_t i = 0; i < pixels; ++i) {
        const std::uint32_t alpha = from.alpha.empty() ? white : from.alpha[i];
        for (std::size_t c = 0; c < colours; ++c) {
            std::uint32_t v = from.samples[i * colours + c];
            if (from.premultiplied && alpha > 0)
                v = std::min(white, (v * white + alpha / 2) / alpha);
            *out++ = static_cast<Sample>(v);
        }
        if (!from.alpha.empty())
            *out++ = static_cast<Sample>(alpha);
    }
}

} // namespace

Photo readTiff(const Bytes& file) {
    tool::Photo read;
    try {
        read = tool::tiffFormat.decode(file, tool::Depth::everything);
    } catch (const tool::CodecError& error) {
        throw Failure(std::string("This TIFF can't be opened: it ") + error.what() + ".");
    }
    Photo photo;
    photo.width = read.width;
    photo.height = read.height;
    photo.channels = read.channels + (read.alpha.empty() ? 0 : 1);
    photo.sampleBytes = read.bits == 16 ? 2 : 1;
    photo.allocate();
    photo.sampleBytes == 2 ? copySamples<std::uint16_t>(read, photo)
                           : copySamples<std::uint8_t>(read, photo);
    photo.icc = read.metadata.icc;
    photo.orientation = std::clamp<std::int32_t>(read.metadata.orientation, 1, 8);
    photo.lost = read.remarks;
    for (const tool::Extra& extra : read.metadata.extras)
        photo.lost.push_back(extra.name);
    return photo;
}

} // namespace kt7::web
