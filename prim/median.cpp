#include "prim/median.h"

#include <algorithm>
#include <bit>

#include "prim/checks.h"
#include "prim/kernels/KernelTable.h"
#include "prim/memory.h"

namespace kt7 {
namespace {

// Integers in the order of the floats, so that a NaN has a place too and selection stays defined.
// The map is its own inverse.
std::int32_t orderedBits(std::int32_t bits) {
    return bits < 0 ? static_cast<std::int32_t>(bits ^ 0x7fffffff) : bits;
}

void medianAnySize(const float* src, std::int32_t srcStep, float* dst, std::int32_t dstStep,
                   PrimSize size, PrimSize maskSize, std::int32_t* samples) {
    const std::ptrdiff_t count = std::ptrdiff_t{maskSize.width} * maskSize.height;
    for (std::int32_t y = 0; y < size.height; ++y) {
        float* out = rowAt(dst, dstStep, y);
        for (std::int32_t x = 0; x < size.width; ++x) {
            std::int32_t* next = samples;
            for (std::int32_t j = 0; j < maskSize.height; ++j) {
                const float* from = rowAt(src, srcStep, y + j) + x;
                next = std::transform(from, from + maskSize.width, next, [](float v) {
                    return orderedBits(std::bit_cast<std::int32_t>(v));
                });
            }
            std::nth_element(samples, samples + count / 2, next);
            out[x] = std::bit_cast<float>(orderedBits(samples[count / 2]));
        }
    }
}

} // namespace

PrimStatus primFilterMedian32fC1(const float* src, std::int32_t srcStep, float* dst,
                                 std::int32_t dstStep, PrimSize size, PrimSize maskSize,
                                 PrimPoint anchor) {
    if (const PrimStatus status = checkPlanes(size, src, dst))
        return status;
    if (maskSize.width < 1 || maskSize.height < 1 || maskSize.width % 2 == 0 ||
        maskSize.height % 2 == 0)
        return primBadMask;
    if (anchor.x < 0 || anchor.x >= maskSize.width || anchor.y < 0 || anchor.y >= maskSize.height)
        return primBadAnchor;
    const float* corner = rowAt(src, srcStep, -anchor.y) - anchor.x;
    if (maskSize.width == 3 && maskSize.height == 3) {
        for (std::int32_t y = 0; y < size.height; ++y)
            neighbourKernels->median3x3(
                rowAt(corner, srcStep, y) + 1, rowAt(corner, srcStep, y + 1) + 1,
                rowAt(corner, srcStep, y + 2) + 1, rowAt(dst, dstStep, y), size.width);
        return primOk;
    }
    constexpr std::int32_t roomOnStack = 225;
    std::int32_t onStack[roomOnStack];
    const std::int64_t count = std::int64_t{maskSize.width} * maskSize.height;
    if (count <= roomOnStack) {
        medianAnySize(corner, srcStep, dst, dstStep, size, maskSize, onStack);
        return primOk;
    }
    if (count > 0x7fffffff / 4)
        return primNoMem;
    const PrimPtr<std::int32_t> samples(
        reinterpret_cast<std::int32_t*>(primMalloc32f(static_cast<std::int32_t>(count))));
    if (samples == nullptr)
        return primNoMem;
    medianAnySize(corner, srcStep, dst, dstStep, size, maskSize, samples.get());
    return primOk;
}

PrimStatus primFilterMedianCross16sC1(const std::int16_t* src, std::int32_t srcStep,
                                      std::int16_t* dst, std::int32_t dstStep, PrimSize size,
                                      std::int32_t mask) {
    if (const PrimStatus status = checkPlanes(size, src, dst))
        return status;
    if (mask != 33 && mask != 55)
        return primBadMask;
    for (std::int32_t y = 0; y < size.height; ++y) {
        const std::int16_t* up = rowAt(src, srcStep, y - 1);
        const std::int16_t* mid = rowAt(src, srcStep, y);
        const std::int16_t* down = rowAt(src, srcStep, y + 1);
        std::int16_t* out = rowAt(dst, dstStep, y);
        if (mask == 33) {
            neighbourKernels->medianCross3(up, mid, down, out, size.width);
        } else {
            const std::int16_t* const rows[5] = {rowAt(src, srcStep, y - 2), up, mid, down,
                                                 rowAt(src, srcStep, y + 2)};
            neighbourKernels->medianCross5(rows, out, size.width);
        }
    }
    return primOk;
}

} // namespace kt7
