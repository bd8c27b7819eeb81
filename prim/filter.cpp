#include "prim/filter.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>

#include "prim/checks.h"
#include "prim/kernels/KernelTable.h"

namespace kt7 {
namespace {

template <class T>
PrimStatus checkConvolution(const T* src, std::int32_t srcStep, const T* dst, std::int32_t dstStep,
                            PrimSize size, const void* kernel, PrimSize kernelSize) {
    if (kernel == nullptr)
        return primNullPtr;
    if (const PrimStatus status = checkPlanes(size, src, dst))
        return status;
    constexpr std::int64_t sampleBytes = sizeof(T);
    if (kernelSize.width < 1 || kernelSize.height < 1 ||
        srcStep < (std::int64_t{size.width} + kernelSize.width - 1) * sampleBytes ||
        dstStep < size.width * sampleBytes)
        return primBadStep;
    return primOk;
}

// Pixel under the last tap of the first output: from here the reversed taps run forward.
template <class T>
const T* farCorner(const T* src, std::int32_t srcStep, PrimSize kernelSize, PrimPoint anchor) {
    return rowAt(src, srcStep, anchor.y - kernelSize.height + 1) +
           (anchor.x - kernelSize.width + 1);
}

// Sums of a stretch of outputs, made row of taps by row of taps.
constexpr std::int32_t stretch = 1024;

void accumulate16s(const std::int16_t* src, const std::int32_t* taps, std::int32_t count,
                   bool first, std::int32_t* acc, std::int32_t n) {
    neighbourKernels->accumulate16s(src, taps, -1, count, first, acc, n);
}

// For kernels whose sums can pass 32 bits.
void accumulate16s(const std::int16_t* src, const std::int32_t* taps, std::int32_t count,
                   bool first, std::int64_t* acc, std::int32_t n) {
    if (first)
        std::fill_n(acc, n, 0);
    for (std::int32_t i = 0; i < count; ++i) {
        const std::int64_t tap = *(taps - i);
        for (std::int32_t x = 0; x < n; ++x)
            acc[x] += tap * src[x + i];
    }
}

std::int16_t saturated16s(std::int64_t v) {
    return static_cast<std::int16_t>(std::clamp<std::int64_t>(v, -32768, 32767));
}

// Divides as told at primFilter16sC1.
template <class Sum>
void divideRow(const Sum* sums, std::int32_t divisor, std::int16_t* dst, std::int32_t n) {
    if (divisor == 1) {
        for (std::int32_t x = 0; x < n; ++x)
            dst[x] = saturated16s(sums[x]);
    } else if (divisor > 1 && std::has_single_bit(static_cast<std::uint32_t>(divisor))) {
        const int shift = std::countr_zero(static_cast<std::uint32_t>(divisor));
        const std::int64_t half = (std::int64_t{1} << (shift - 1)) - 1;
        for (std::int32_t x = 0; x < n; ++x) {
            const std::int64_t sum = sums[x];
            dst[x] = saturated16s((sum + half + ((sum >> shift) & 1)) >> shift);
        }
    } else {
        for (std::int32_t x = 0; x < n; ++x) {
            const double quotient = std::nearbyint(static_cast<double>(sums[x]) / divisor);
            dst[x] = static_cast<std::int16_t>(std::clamp(quotient, -32768.0, 32767.0));
        }
    }
}

template <class Sum>
void convolve16s(const std::int16_t* src, std::int32_t srcStep, std::int16_t* dst,
                 std::int32_t dstStep, PrimSize size, const std::int32_t* kernel,
                 PrimSize kernelSize, PrimPoint anchor, std::int32_t divisor) {
    const std::int16_t* corner = farCorner(src, srcStep, kernelSize, anchor);
    Sum sums[stretch];
    for (std::int32_t y = 0; y < size.height; ++y) {
        for (std::int32_t x = 0; x < size.width; x += stretch) {
            const std::int32_t n = std::min(stretch, size.width - x);
            const std::int32_t* taps =
                kernel + std::ptrdiff_t{kernelSize.width} * kernelSize.height - 1;
            for (std::int32_t j = 0; j < kernelSize.height; ++j, taps -= kernelSize.width)
                accumulate16s(rowAt(corner, srcStep, y + j) + x, taps, kernelSize.width, j == 0,
                              sums, n);
            divideRow(sums, divisor, rowAt(dst, dstStep, y) + x, n);
        }
    }
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

PrimStatus primFilter16sC1(const std::int16_t* src, std::int32_t srcStep, std::int16_t* dst,
                           std::int32_t dstStep, PrimSize size, const std::int32_t* kernel,
                           PrimSize kernelSize, PrimPoint anchor, std::int32_t divisor) {
    if (const PrimStatus status =
            checkConvolution(src, srcStep, dst, dstStep, size, kernel, kernelSize))
        return status;
    if (divisor == 0)
        return primZeroDivisor;
    std::int64_t weight = 0;
    const std::ptrdiff_t count = std::ptrdiff_t{kernelSize.width} * kernelSize.height;
    for (std::ptrdiff_t i = 0; i < count; ++i)
        weight += std::abs(std::int64_t{kernel[i]});
    if (weight <= 0x7fffffff / 32768)
        convolve16s<std::int32_t>(src, srcStep, dst, dstStep, size, kernel, kernelSize, anchor,
                                  divisor);
    else
        convolve16s<std::int64_t>(src, srcStep, dst, dstStep, size, kernel, kernelSize, anchor,
                                  divisor);
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
