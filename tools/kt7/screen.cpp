#include "tools/kt7/screen.h"

#include "tools/kt7/files/sampleScale.h"

namespace kt7::tool {

LibraryImage::LibraryImage(const Photo& photo) : width_(photo.width), height_(photo.height) {
    const Rescale toLibrary(photo.white(), libraryWhite);
    samples_.reserve(static_cast<std::size_t>(photo.pixels()) * 3);
    for (const std::uint16_t sample : photo.samples)
        samples_.insert(samples_.end(), photo.channels == 1 ? 3 : 1, toLibrary(sample));
}

PSImage LibraryImage::view() {
    constexpr std::int32_t rgb16 = 3;
    return {rgb16, samples_.data(), width_ * 3 * std::int32_t{sizeof(std::uint16_t)}, width_,
            height_};
}

Bytes screenRgb(const Photo& photo) {
    constexpr std::uint32_t white = 255;
    const Rescale toScreen(photo.white(), white);
    Bytes rgb;
    rgb.reserve(static_cast<std::size_t>(photo.pixels()) * 3);
    for (const std::uint16_t sample : photo.samples)
        rgb.insert(rgb.end(), photo.channels == 1 ? 3 : 1,
                   static_cast<std::uint8_t>(toScreen(sample)));
    return rgb;
}

} // namespace kt7::tool
