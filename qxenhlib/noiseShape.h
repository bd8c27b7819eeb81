// How a threshold falls off towards the fine levels when noise is not white.
#pragma once

#include <cstdint>

namespace kt7 {

inline constexpr std::int32_t noiseShapeLevels = 6;

/// Factors on the thresholds of levels 0 (finest) to 5. shape: 0.2 and below is white noise,
/// factors about 1; a larger shape lowers the fine levels, up to 1.99. A shape that is no number
/// counts as the largest.
void noiseShape(float shape, float out[noiseShapeLevels]);

} // namespace kt7
