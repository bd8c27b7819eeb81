// Lucy-Richardson deconvolution of float planes.
#pragma once

#include <memory>

#include "prim/primtypes.h"

namespace kt7 {

/// Kernel and work storage of the deconvolution; for one thread at a time.
struct PrimDeconvLR32f;

/// Makes a state for a kernel of K x K weights, row by row, anchored at (K - 1) / 2 in both
/// directions, and for planes with width + K - 1 and height + K - 1 within maxSize. primBadSize
/// when K or a side of maxSize is below 1 or K passes a side, primBadArg for a threshold that is
/// not at least 0, primNoMem. The state is written only on success.
PrimStatus primDeconvLRInitAlloc32fC1(PrimDeconvLR32f** state, const float* kernel, std::int32_t K,
                                      PrimSize maxSize, float threshold);

/// Restores what the kernel has blurred (Richardson 1972, Lucy 1974). Round the plane stands a
/// frame that continues it by its nearest pixels, faded by the part of the kernel that still
/// reaches the plane. Divisors and results whose magnitude does not pass the threshold become 0.
/// primBadSize when the size does not fit the state, primBadStep for a step below width * 4,
/// primUnalignedStep, primBadArg for fewer than 1 iteration. src and dst may be the same plane.
PrimStatus primDeconvLR32fC1(const float* src, std::int32_t srcStep, float* dst,
                             std::int32_t dstStep, PrimSize size, std::int32_t iterations,
                             PrimDeconvLR32f* state);

/// Frees a state; null is allowed.
void primDeconvLRFree32fC1(PrimDeconvLR32f* state) noexcept;

struct PrimDeconvLRFree {
    void operator()(PrimDeconvLR32f* state) const noexcept { primDeconvLRFree32fC1(state); }
};
using PrimDeconvLRPtr = std::unique_ptr<PrimDeconvLR32f, PrimDeconvLRFree>;

} // namespace kt7
