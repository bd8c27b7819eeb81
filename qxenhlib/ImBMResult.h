// Match lists of one tile: what the block matcher hands to the group filter.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace kt7 {

/// The candidate at pixel (x, y), top left corner of its block, has the number y * candX + x. Query
/// q = qy * queryX + qx is the block at (qx * step, qy * step); its matches stand at q *
/// numMatches, best first.
struct ImBMResult {
    std::int32_t width = 0;      ///< tile size in pixels
    std::int32_t height = 0;     ///<
    std::int32_t candX = 0;      ///< candidates in a row
    std::int32_t candY = 0;      ///< candidates in a column
    std::int32_t blockSize = 0;  ///< 8
    std::int32_t step = 0;       ///< pixels between neighbouring queries
    std::int32_t numMatches = 0; ///< 8
    std::int32_t queryX = 0;     ///< queries in a row
    std::int32_t queryY = 0;     ///< queries in a column
    std::unique_ptr<std::int32_t[]> matchIdx;
    std::unique_ptr<float[]> matchDist; ///< squared feature distances

    /// Fills the geometry for a tile of at least 8 x 8 pixels, and allocates both arrays.
    void setGeometry(std::int32_t tileWidth, std::int32_t tileHeight, std::int32_t queryStep) {
        width = tileWidth;
        height = tileHeight;
        blockSize = 8;
        numMatches = 8;
        step = queryStep;
        candX = width - blockSize + 1;
        candY = height - blockSize + 1;
        queryX = (width - blockSize) / step + 1;
        queryY = (height - blockSize) / step + 1;
        const auto matches = static_cast<std::size_t>(queryX) * static_cast<std::size_t>(queryY) *
                             static_cast<std::size_t>(numMatches);
        matchIdx = std::make_unique<std::int32_t[]>(matches);
        matchDist = std::make_unique<float[]>(matches);
    }
};

} // namespace kt7
