#include "prim/filter.h"

#include <algorithm>

#include "prim/checks.h"
#include "prim/kernels/KernelTable.h"

namespace kt7 {
namespace {

// Pixel under the last tap of the first output: from here the reversed taps run forward.
const float* farCorner(const float* src, std::int32_t srcStep, PrimSize kernelSize,
                       PrimPoint anchor) {
    return rowAt(src, srcStep, anchor.y - kernelSize.height + 1) +
           (anchor.x - kernelSize.width + 1);
}

} // namespace

PrimStatus primFilter32fC1(const float* src, std::int32_t srcStep, float* dst, std::int32_t dstStep,
                           PrimSize size, const float* kernel, PrimSize kernelSize,
                           PrimPoint anchor) {
    if (const PrimStatus status =
            checkConvolution(src, srcStep, dst, dstStep, size, kernel, kernelSize))
        return status;
    const float* corner = farCorner(src, srcStep, kernelSize, anchor);
    if (kernelSize.width == 3 && kernelSize.height == 3) {
        float taps[9];
        std::reverse_copy(kernel, kernel + 9, taps);
        for (std::int32_t y = 0; y < size.height; ++y)
            neighbourKernels->taps3x3(
                rowAt(corner, srcStep, y) + 1, rowAt(corner, srcStep, y + 1) + 1,
                rowAt(corner, srcStep, y + 2) + 1, taps, rowAt(dst, dstStep, y), size.width);
        return primOk;
    }
    for (std::int32_t y = 0; y < size.height; ++y) {
        const float* taps = kernel + std::ptrdiff_t{kernelSize.width} * kernelSize.height - 1;
        for (std::int32_t j = 0; j < kernelSize.height; ++j, taps -= kernelSize.width)
            neighbourKernels->accumulate32f(rowAt(corner, srcStep, y + j), taps, -1,
                                            kernelSize.width, j == 0, rowAt(dst, dstStep, y),
                                            size.width);
    }
    return primOk;
}

PrimStatus primFilterBox32fC1(const float* src, std::int32_t srcStep, float* dst,
                              std::int32_t dstStep, PrimSize size, PrimSize maskSize,
                              PrimPoint anchor) {
    if (const PrimStatus status = checkPlanes(size, src, dst))
        return status;
    if (maskSize.width < 1 || maskSize.height < 1)
        return primBadMask;
    if (anchor.x < 0 || anchor.x >= maskSize.width || anchor.y < 0 || anchor.y >= maskSize.height)
        return primBadAnchor;
    const float* corner = rowAt(src, srcStep, -anchor.y) - anchor.x;
    if (maskSize.width == 2 && maskSize.height == 2) {
        for (std::int32_t y = 0; y < size.height; ++y)
            neighbourKernels->box2x2(rowAt(corner, srcStep, y), rowAt(corner, srcStep, y + 1),
                                     rowAt(dst, dstStep, y), size.width);
        return primOk;
    }
    const float one = 1.0f;
    const float perPixel =
        1.0f / static_cast<float>(std::int64_t{maskSize.width} * maskSize.height);
    for (std::int32_t y = 0; y < size.height; ++y) {
        float* out = rowAt(dst, dstStep, y);
        for (std::int32_t j = 0; j < maskSize.height; ++j)
            neighbourKernels->accumulate32f(rowAt(corner, srcStep, y + j), &one, 0, maskSize.width,
                                            j == 0, out, size.width);
        arithKernels->mulC(out, perPixel, out, size.width);
    }
    return primOk;
}

PrimStatus primFilterGauss32fC1(const float* src, std::int32_t srcStep, float* dst,
                                std::int32_t dstStep, PrimSize size, std::int32_t mask) {
    if (const PrimStatus status = checkPlanes(size, src, dst))
        return status;
    if (mask != 33 && mask != 55)
        return primBadMask;
    if (mask == 33) {
        for (std::int32_t y = 0; y < size.height; ++y)
            neighbourKernels->gauss3x3(rowAt(src, srcStep, y - 1), rowAt(src, srcStep, y),
                                       rowAt(src, srcStep, y + 1), rowAt(dst, dstStep, y),
                                       size.width);
        return primOk;
    }
    constexpr float e = 1.0f / 256.0f;
    static constexpr float taps[3][5] = {{e, 4 * e, 6 * e, 4 * e, e},
                                         {4 * e, 16 * e, 24 * e, 16 * e, 4 * e},
                                         {6 * e, 24 * e, 36 * e, 24 * e, 6 * e}};
    for (std::int32_t y = 0; y < size.height; ++y)
        for (std::int32_t j = 0; j < 5; ++j)
            neighbourKernels->accumulate32f(rowAt(src, srcStep, y + j - 2) - 2,
                                            taps[std::min(j, 4 - j)], 1, 5, j == 0,
                                            rowAt(dst, dstStep, y), size.width);
    return primOk;
}

} // namespace kt7
