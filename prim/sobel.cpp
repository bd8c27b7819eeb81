#include "prim/sobel.h"

#include "prim/checks.h"
#include "prim/kernels/KernelTable.h"

namespace kt7 {

PrimStatus primFilterSobelHoriz32fC1(const float* src, std::int32_t srcStep, float* dst,
                                     std::int32_t dstStep, PrimSize size) {
    if (const PrimStatus status = checkPlanes(size, src, dst))
        return status;
    for (std::int32_t y = 0; y < size.height; ++y)
        neighbourKernels->sobelHoriz(rowAt(src, srcStep, y - 1), rowAt(src, srcStep, y + 1),
                                     rowAt(dst, dstStep, y), size.width);
    return primOk;
}

PrimStatus primFilterSobelVert32fC1(const float* src, std::int32_t srcStep, float* dst,
                                    std::int32_t dstStep, PrimSize size) {
    if (const PrimStatus status = checkPlanes(size, src, dst))
        return status;
    for (std::int32_t y = 0; y < size.height; ++y)
        neighbourKernels->sobelVert(rowAt(src, srcStep, y - 1), rowAt(src, srcStep, y),
                                    rowAt(src, srcStep, y + 1), rowAt(dst, dstStep, y), size.width);
    return primOk;
}

} // namespace kt7
