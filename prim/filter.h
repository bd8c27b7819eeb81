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
