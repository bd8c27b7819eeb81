#include "photo/mosaic.h"

#include <algorithm>

namespace kt7::photo {
namespace {

// Enough blocks for steady means of their calmest twentieth.
constexpr std::int32_t windowSide = 128;
constexpr std::int64_t largestWhole = 1'000'000, large = 8'000'000; // pixels
// What the denoiser makes of a window's rim depends on its neighbour.
constexpr std::int32_t rim = 8;
constexpr std::int32_t blockSide = 8, grid = 4;

void addBlocks(std::vector<BlockPlace>& blocks, std::int32_t left, std::int32_t top,
               std::int32_t width, std::int32_t height) {
    for (std::int32_t y = top; y + blockSide <= top + height; y += grid)
        for (std::int32_t x = left; x + blockSide <= left + width; x += grid)
            blocks.push_back({x, y});
}

/// Start of window `number` of `count` that are spread over a side, on the grid of an encoder.
std::int32_t startOf(std::int32_t number, std::int32_t count, std::int32_t side) {
    return static_cast<std::int32_t>(std::int64_t{side - windowSide} * number / (count - 1) / 8 *
                                     8);
}

} // namespace

Mosaic mosaicOf(const EngineImage& photo) {
    constexpr std::int32_t leastSide = 160;
    const bool narrow = std::min(photo.width, photo.height) < leastSide;
    if (narrow || std::int64_t{photo.width} * photo.height <= largestWhole) {
        // A narrow photo may be long: what is measured of it is its beginning.
        constexpr std::int32_t longest = 4096;
        Mosaic whole{{std::clamp(photo.width, leastSide, longest),
                      std::clamp(photo.height, leastSide, longest)},
                     {}};
        EngineImage& image = whole.image;
        for (std::int32_t y = 0; y < image.height; ++y) {
            const std::uint16_t* from = photo.row(mirrored(y, photo.height));
            std::uint16_t* to = image.row(y);
            for (std::int32_t x = 0; x < image.width; ++x, to += 3)
                std::copy_n(from + std::ptrdiff_t{3} * mirrored(x, photo.width), 3, to);
        }
        addBlocks(whole.blocks, 0, 0, image.width, image.height);
        return whole;
    }
    const std::int32_t count = std::int64_t{photo.width} * photo.height > large ? 8 : 6;
    Mosaic mosaic{{count * windowSide, count * windowSide}, {}};
    for (std::int32_t row = 0; row < count; ++row)
        for (std::int32_t column = 0; column < count; ++column) {
            const std::int32_t x = startOf(column, count, photo.width);
            const std::int32_t y = startOf(row, count, photo.height);
            for (std::int32_t i = 0; i < windowSide; ++i)
                std::copy_n(photo.row(y + i) + std::ptrdiff_t{3} * x, 3 * windowSide,
                            mosaic.image.row(row * windowSide + i) +
                                std::ptrdiff_t{3} * column * windowSide);
            addBlocks(mosaic.blocks, column * windowSide + rim, row * windowSide + rim,
                      windowSide - 2 * rim, windowSide - 2 * rim);
        }
    return mosaic;
}

} // namespace kt7::photo
