// Rows of float tiles on their way from and to 16-bit planes. Exact on every CPU target.
#pragma once

#include <cstdint>

namespace kt7 {

/// dst = src * scale.
void loadTileRow(const std::int16_t* src, float scale, float* dst, std::int32_t n);

/// row = row * scale, held within +-limit; a NaN ends at a limit too.
void holdTileRow(float scale, float limit, float* row, std::int32_t n);

/// dst = src, or a mix of src (weight w) and dst (1 - w) where dst is not `unwritten`; truncated.
/// The weight of element x is weight[x * weightStride].
void fadeTileRow(const float* src, const float* weight, std::int32_t weightStride,
                 std::int16_t unwritten, std::int16_t* dst, std::int32_t n);

} // namespace kt7
