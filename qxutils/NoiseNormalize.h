// Intensity tables that make noise equally large at all intensities, and undo it again.
#pragma once

#include <cstdint>

#include "prim/memory.h"

namespace kt7 {

/// Variance-stabilising tables for 15-bit samples. `fwd` stretches intensities by the inverse of
/// the noise expected there, so that filters behind it see noise of about one size; `inv` undoes
/// it.
struct NoiseNormalize {
    static constexpr std::int32_t tableSize = 32768;

    /// Deviations from black and from white within which the curve counts less noise: what would
    /// lie beyond the end is cut off there.
    static constexpr float usualClipFactor = 0.95f;

    PrimPtr<std::int16_t> fwd;    ///< intensity to normalised value, non-decreasing
    PrimPtr<std::int16_t> inv;    ///< normalised value to intensity, non-decreasing
    float low = 0.0f;             ///< noise at black, where 1.0 is full intensity
    float mid = 0.0f;             ///< noise at middle grey
    float high = 0.0f;            ///< noise at white
    float clipFactor = 0.0f;      ///< how many deviations from either end the noise begins to clip
    float normalisedNoise = 0.0f; ///< noise of middle grey on the normalised scale

    /// Allocates both tables, contents undefined until setup. Raises noBufferStorage.
    NoiseNormalize();

    /// Fills both tables from the three levels and returns normalisedNoise. A level that is
    /// negative or not a number counts as 0; with all three below 1e-6 the tables change nothing.
    /// Raises noBufferStorage.
    float setup(float newLow, float newMid, float newHigh, float newClipFactor);

  private:
    void fillForward(const float* sigma);
    void fillInverse();
};

} // namespace kt7
