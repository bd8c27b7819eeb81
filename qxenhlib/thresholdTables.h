// Shape of the noise over the 8x8 block frequencies of each pyramid level.
#pragma once

#include <cstdint>

namespace kt7 {

/// Stored shapes, from white noise (0) to noise without fine frequencies (4).
inline constexpr std::int32_t noiseSets = 5;

/// Fills a table of 64 floats, entry 8u + v for vertical frequency u and horizontal frequency v:
/// the noise of that coefficient at `level` (0 finest, 3 the low-pass residual), relative to the
/// noise of the plane. noiseGrain 0 or less gives set 0, above 2 set 4; between, neighbouring sets
/// 0.5 apart are mixed linearly.
void fillThresholdTable(float noiseGrain, std::int32_t level, float* table);

} // namespace kt7
