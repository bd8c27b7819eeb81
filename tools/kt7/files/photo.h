// A picture in memory, as the library wants it, with all that has to go back into a file.
#pragma once

#include "kt7lib/kt7lib.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace kt7::tool {

/// What the file knew beside the pixels; see imageFile.cpp.
struct FileTraits;

struct Photo {
    std::int32_t width = 0;
    std::int32_t height = 0;
    bool grey = false;    ///< the file has one colour channel; rgb holds it three times
    bool sixteen = false; ///< which of the two vectors holds the pixels

    std::vector<std::uint8_t> rgb8;   ///< interleaved, 0..255
    std::vector<std::uint16_t> rgb15; ///< interleaved, 0..32768
    std::vector<float> alpha;         ///< 0..1, one a pixel, empty without alpha
    std::shared_ptr<const FileTraits> traits;

    std::int64_t pixels() const { return std::int64_t{width} * height; }
    double megapixels() const { return static_cast<double>(pixels()) * 1e-6; }
    std::int32_t rowBytes() const { return width * 3 * (sixteen ? 2 : 1); }

    /// The library's view of the pixels; valid while the photo is not resized.
    PSImage hostImage() {
        return {sixteen ? 3 : 1,
                sixteen ? static_cast<void*>(rgb15.data()) : static_cast<void*>(rgb8.data()),
                rowBytes(), width, height};
    }
};

} // namespace kt7::tool
