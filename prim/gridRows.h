// Rows of the bilateral grid. A grid slice is an image of columns of cells, z running fastest;
// `columns` holds, per pixel, where its column starts in the slice. Exact on every CPU target.
#pragma once

#include <cstdint>

namespace kt7 {

/// Position (sample - low) * scale + offset of each sample, which is held to [low, high] first: its
/// whole part goes to `cells`, held within 0..mostCell (at most 255), and what is left to
/// `fractions` unless that is null.
void gridPositions(const float* samples, float low, float high, float scale, float offset,
                   std::int32_t mostCell, std::uint8_t* cells, float* fractions, std::int32_t n);

/// Adds each value, and 1, to its cell.
void splatRow(const float* values, const std::int32_t* columns, const std::uint8_t* cells,
              float* valueSlice, float* countSlice, std::int32_t n);

/// Blurs values and counts with 1 2 1 across three slices and divides.
void blurQuotientRow(const float* const values[3], const float* const counts[3], float* dst,
                     std::int32_t n);

/// Trilinear interpolation between two slices.
void interpolateRow(const float* nearSlice, const float* farSlice, std::int32_t columnStride,
                    const std::int32_t* columns, const float* columnFractions,
                    const std::uint8_t* cells, const float* fractions, float rowFraction,
                    float* dst, std::int32_t n);

} // namespace kt7
