// Convolution, box and Gauss filters. src points at the pixel of the first output; the
// neighbourhood is read round it, so it must exist. src and dst must not overlap.
#pragma once

#include "prim/primtypes.h"

namespace kt7 {

/// Convolution with a kernel stored row by row, so applied reversed in both directions:
/// dst(x, y) = sum of kernel[j * kernelSize.width + i] * src(x + anchor.x - i, y + anchor.y - j).
/// primBadStep when a kernel side is below 1, srcStep below width + kernelSize.width - 1 samples or
/// dstStep below width samples.
PrimStatus primFilter32fC1(const float* src, std::int32_t srcStep, float* dst, std::int32_t dstStep,
                           PrimSize size, const float* kernel, PrimSize kernelSize,
                           PrimPoint anchor);

/// The same on integers: the sum is exact in 64 bits, is divided by `divisor` to the nearest
/// integer with ties to even, and saturates. primZeroDivisor for a divisor of 0.
PrimStatus primFilter16sC1(const std::int16_t* src, std::int32_t srcStep, std::int16_t* dst,
                           std::int32_t dstStep, PrimSize size, const std::int32_t* kernel,
                           PrimSize kernelSize, PrimPoint anchor, std::int32_t divisor);

/// Mean over maskSize pixels whose top left corner lies `anchor` before the output's pixel.
/// primBadMask for a side below 1, primBadAnchor when the anchor lies outside.
PrimStatus primFilterBox32fC1(const float* src, std::int32_t srcStep, float* dst,
                              std::int32_t dstStep, PrimSize size, PrimSize maskSize,
                              PrimPoint anchor);

/// Binomial smoothing, 1 2 1 (mask 33) or 1 4 6 4 1 (mask 55) along both axes with gain 1.
/// primBadMask for other codes.
PrimStatus primFilterGauss32fC1(const float* src, std::int32_t srcStep, float* dst,
                                std::int32_t dstStep, PrimSize size, std::int32_t mask);

} // namespace kt7
