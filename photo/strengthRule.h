// How strongly to denoise: every number of the rule, and the rule.
#pragma once

#include "include/kt7photo/kt7photo.h"

namespace kt7::photo {

namespace rule {

/// A number for coarse noise, which a camera has filtered, and one for fine noise.
struct ByFineness {
    float coarse, fine;
};

// The first pilot. Noise that a camera's demosaicing and JPEG engine have blurred measures lower than
// it looks; fine noise measures about right.
inline constexpr ByFineness firstLuma{2.2f, 1.6f}, firstChroma{3.5f, 2.0f};
inline constexpr float noiseGrain = 0.3f;

// The twentieth part of the windows is calm in all but the busiest photos; in white noise their
// deviation reads low by this factor, as they are the lowest of many measurements.
inline constexpr float calmShare = 0.05f, calmBias = 0.88f;
// The calm places of a photo may be calmer than its noise is elsewhere: dark, or smoothed by the
// camera. Fine noise was not smoothed.
inline constexpr ByFineness allowance{1.25f, 1.1f};
// The levels of black and white are extrapolated, wildly at times.
inline constexpr float mostAtEnds = 1.5f;
// At most the first, noise has the grain of a demosaicing filter; from the second on it is fine.
inline constexpr float coarseFineness = 0.45f, fineFineness = 0.6f;

} // namespace rule

} // namespace kt7::photo
