// Sobel gradients. src points at the pixel of the first output; one pixel to each side is read.
#pragma once

#include "prim/primtypes.h"

namespace kt7 {

/// Response to horizontal edges: weights 1 2 1 along the row below, less those of the row above.
PrimStatus primFilterSobelHoriz32fC1(const float* src, std::int32_t srcStep, float* dst,
                                     std::int32_t dstStep, PrimSize size);

/// Response to vertical edges: weights 1 2 1 down the column to the left, less those to the right.
PrimStatus primFilterSobelVert32fC1(const float* src, std::int32_t srcStep, float* dst,
                                    std::int32_t dstStep, PrimSize size);

} // namespace kt7
