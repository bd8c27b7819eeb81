// Lucy-Richardson deconvolution of one tile with a Gaussian kernel.
#pragma once

#include <cstdint>

#include "prim/deconvLR.h"
#include "prim/memory.h"
#include "qxutils/qxbase/IMG.h"

namespace kt7 {

/// Takes a Gaussian blur out of tiles. init comes first; apply may then follow for any number of
/// tiles, and keeps its work planes as long as the tiles stay of one size.
struct LRDeconv {
    PrimPtr<float> kernel; ///< kernelSize x kernelSize weights that add up to 1
    PrimDeconvLRPtr state;
    std::int32_t kernelSize = 0; ///< 3, 5, 7 or 9
    std::int32_t iterations = 20;
    float threshold = 0.0001f; ///< magnitudes up to this count as 0
    float sigma = 0.0f;        ///< deviation of the blur in pixels

    /// Builds the kernel. A threshold below 0 leaves the one that is set. Raises noKernelStorage.
    void init(float newSigma, std::int32_t newIterations, float newThreshold);

    /// Deconvolves `in` to `out`, two tiles of one size. The outer 4 to 8 pixels, where the blur
    /// comes from outside the tile, are copied. Raises noBufferStorage.
    void apply(const GIMG<float>& in, GIMG<float>& out);

  private:
    PrimSize stateSize_{};
};

} // namespace kt7
