// Blind noise measurement on the flat pixels of a plane, in a band of intensities.
#pragma once

#include <cstdint>
#include <memory>

#include "qxutils/qxbase/IMG.h"

namespace kt7 {

/// One measuring set-up. A plane's noise is the mean absolute response of a kernel that cancels
/// everything up to a slanted plane (Immerkaer 1996), taken where the gradient of the
/// median-filtered plane is among the smallest. Planes are on the scale where 1.0 is full
/// intensity; results are standard deviations on that scale. Raises noBufferStorage, or
/// std::bad_alloc for the tables.
struct NoiseBandEstimator {
    static constexpr std::int32_t tableSize = 258;

    float gradientFraction; ///< share of the pixels that counts as flat
    float bandLow;          ///< a pixel is used when its sample lies in bandLow..bandHigh
    float bandHigh;
    float kernel[9] = {1, -2, 1, -2, 4, -2, 1, -2, 1};
    std::unique_ptr<std::int32_t[]> histogram;  ///< of the gradients; made cumulative
    std::unique_ptr<std::int32_t[]> levelTable; ///< bounds of its 256 bins
    float meanRoot = 0.0f;                      ///< mean square root of the samples used
    float sampleCount = 0.0f;                   ///< number of pixels used

    NoiseBandEstimator(float fraction, float low, float high);

    /// Noise of one plane. gradients: the plane's own, for planes that are measured in several bands.
    float estimate(const GIMG<float>& plane, const GIMG<std::uint8_t>* gradients = nullptr);

    /// Noise of three planes of one size, on the pixels that are flat and in band in the first.
    void estimateThree(const GIMG<float>* const planes[3], float results[3]);

  private:
    std::int32_t flatLimit(const GIMG<std::uint8_t>& gradients);
    void measure(const GIMG<float>* const* planes, std::int32_t count, float* results);
    void measure(const GIMG<float>* const* planes, std::int32_t count,
                 const GIMG<std::uint8_t>& gradients, float* results);
};

/// Noise of a plane at black, at middle grey and at white: measured in the middle, and continued to
/// both ends along a line in the square root of the intensity through a low and a high band.
/// A plane with hardly anything in the middle gets one level throughout.
void estimateLevels(const GIMG<float>& plane, float noise[3]);

} // namespace kt7
