// Photos for tests of files.
#pragma once

#include "tools/kt7/files/format.h"

namespace kt7::tool {

/// Every sample value of the depth comes up; alpha is often 0 over colour that is not.
inline Photo samplePhoto(std::int32_t channels, std::int32_t bits, bool alpha,
                         std::int32_t width = 37, std::int32_t height = 23) {
    Photo photo;
    photo.width = width;
    photo.height = height;
    photo.channels = channels;
    photo.bits = bits;
    for (std::uint32_t i = 0; i < static_cast<std::uint32_t>(width * height); ++i) {
        for (std::uint32_t c = 0; c < static_cast<std::uint32_t>(channels); ++c)
            photo.samples.push_back(static_cast<std::uint16_t>(i * (77 + 4 * c) % (1u << bits)));
        if (alpha)
            photo.alpha.push_back(static_cast<std::uint16_t>(i % 3 * (photo.white() / 2)));
    }
    return photo;
}

/// A slope: lossy formats keep it nearly.
inline Photo smoothPhoto(std::int32_t width = 64, std::int32_t height = 48) {
    Photo photo = samplePhoto(3, 8, false, width, height);
    for (std::size_t i = 0; i < photo.samples.size(); ++i) {
        const auto x = static_cast<std::int32_t>(i / 3) % width;
        photo.samples[i] = static_cast<std::uint16_t>(60 + x + 30 * static_cast<int>(i % 3));
    }
    return photo;
}

} // namespace kt7::tool
