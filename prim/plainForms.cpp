// Plain forms, which only tests link.
#include "prim/plainForms.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "prim/checks.h"
#include "prim/kernels/KernelTable.h"
#include "prim/resize.h"

namespace kt7 {
namespace {

// dst(x, y) = of(src(x, y), dst(x, y)).
template <class S, class D, class Of>
PrimStatus forPixels(const S* src, std::int32_t srcStep, D* dst, std::int32_t dstStep,
                     PrimSize size, Of&& of) {
    if (const PrimStatus status = checkPlanes(size, src, dst))
        return status;
    return forRows(src, srcStep, dst, dstStep, size, [&](const S* from, D* to) {
        for (std::int32_t x = 0; x < size.width; ++x)
            to[x] = of(from[x], to[x]);
    });
}

// The same on one channel of interleaved pixels.
template <int pixelSamples, class Of>
PrimStatus forChannel(const std::uint8_t* src, std::int32_t srcStep, std::uint8_t* dst,
                      std::int32_t dstStep, PrimSize size, Of&& of) {
    if (const PrimStatus status = checkPlanes(size, src, dst))
        return status;
    return forRows(src, srcStep, dst, dstStep, size,
                   [&](const std::uint8_t* from, std::uint8_t* to) {
                       for (std::int32_t x = 0; x < size.width; ++x)
                           to[std::ptrdiff_t{pixelSamples} * x] = of(from[x]);
                   });
}

// Along one axis of a block: eight elements `stride` apart, in double precision.
template <bool isForward>
void transformAxis(float* x, std::ptrdiff_t stride) {
    double out[8] = {};
    for (int k = 0; k < 8; ++k)
        for (int i = 0; i < 8; ++i) {
            const double weight = std::cos((2 * i + 1) * k * std::numbers::pi / 16) *
                                  (k == 0 ? std::numbers::sqrt2 / 4 : 0.5);
            out[isForward ? k : i] += weight * double{x[stride * (isForward ? i : k)]};
        }
    for (int i = 0; i < 8; ++i)
        x[stride * i] = static_cast<float>(out[i]);
}

template <bool isForward>
PrimStatus transformBlock(float* block) {
    if (block == nullptr)
        return primNullPtr;
    for (int i = 0; i < 8; ++i)
        transformAxis<isForward>(block + std::ptrdiff_t{8} * i, 1);
    for (int i = 0; i < 8; ++i)
        transformAxis<isForward>(block + i, 8);
    return primOk;
}

bool holds(float a, float b, std::int32_t relation) {
    switch (relation) {
    case primLess:
        return a < b;
    case primLessEqual:
        return a <= b;
    case primEqual:
        return a == b;
    case primGreaterEqual:
        return a >= b;
    default:
        return a > b;
    }
}

// To the nearest integer with ties to even, exact for every sum and divisor.
std::int16_t divided16s(std::int64_t sum, std::int32_t divisor) {
    const std::int64_t d = divisor, sign = d < 0 ? -1 : 1;
    std::int64_t quotient = sum * sign / (d * sign), rest = sum * sign % (d * sign);
    if (rest < 0) {
        rest += d * sign;
        --quotient;
    }
    const std::int64_t twice = 2 * rest - d * sign;
    if (twice > 0 || (twice == 0 && quotient % 2 != 0))
        ++quotient;
    return static_cast<std::int16_t>(std::clamp<std::int64_t>(quotient, -32768, 32767));
}

} // namespace

PrimStatus primConvert8u32fC1(const std::uint8_t* src, std::int32_t srcStep, float* dst,
                              std::int32_t dstStep, PrimSize size) {
    return forPixels(src, srcStep, dst, dstStep, size,
                     [](std::uint8_t s, float) { return static_cast<float>(s); });
}

PrimStatus primSub32fC1I(const float* src, std::int32_t srcStep, float* srcDst,
                         std::int32_t srcDstStep, PrimSize size) {
    return forPixels(src, srcStep, srcDst, srcDstStep, size,
                     [](float s, float d) { return d - s; });
}

PrimStatus primMulC32fC1(const float* src, std::int32_t srcStep, float c, float* dst,
                         std::int32_t dstStep, PrimSize size) {
    return forPixels(src, srcStep, dst, dstStep, size, [=](float s, float) { return s * c; });
}

PrimStatus primDiv32fI(const float* src, float* srcDst, std::int32_t length) {
    return primDiv32fC1I(src, 0, srcDst, 0, {length, 1});
}

PrimStatus primAdd32fI(const float* src, float* srcDst, std::int32_t length) {
    return forPixels(src, 0, srcDst, 0, {length, 1}, [](float s, float d) { return d + s; });
}

PrimStatus primDiv32fC1I(const float* src, std::int32_t srcStep, float* srcDst,
                         std::int32_t srcDstStep, PrimSize size) {
    bool zeros = false;
    const PrimStatus status =
        forPixels(src, srcStep, srcDst, srcDstStep, size, [&](float s, float d) {
            zeros |= s == 0.0f;
            return d / (s + 0.0f); // turns -0 into +0, so that the sign is the dividend's
        });
    return zeros ? primDivByZero : status;
}

PrimStatus primDCT8x8Fwd32fC1I(float* block) {
    return transformBlock<true>(block);
}

PrimStatus primDCT8x8Inv32fC1I(float* block) {
    return transformBlock<false>(block);
}

PrimStatus primMagnitude32f(const float* re, const float* im, float* dst, std::int32_t length) {
    if (const PrimStatus status = checkVectors(length, re, im, dst))
        return status;
    for (std::int32_t i = 0; i < length; ++i)
        dst[i] = std::sqrt(re[i] * re[i] + im[i] * im[i]);
    return primOk;
}

PrimStatus primSubC32fC1I(float c, float* srcDst, std::int32_t srcDstStep, PrimSize size) {
    return forPixels(srcDst, srcDstStep, srcDst, srcDstStep, size,
                     [=](float, float d) { return d - c; });
}

PrimStatus primCompare32fC1(const float* src1, std::int32_t src1Step, const float* src2,
                            std::int32_t src2Step, std::uint8_t* dst, std::int32_t dstStep,
                            PrimSize size, std::int32_t relation) {
    if (const PrimStatus status = checkPlanes(size, src1, src2, dst))
        return status;
    if (relation < primLess || relation > primGreater)
        return primBadArg;
    for (std::int32_t y = 0; y < size.height; ++y)
        for (std::int32_t x = 0; x < size.width; ++x)
            rowAt(dst, dstStep, y)[x] =
                holds(rowAt(src1, src1Step, y)[x], rowAt(src2, src2Step, y)[x], relation) ? 255 : 0;
    return primOk;
}

PrimStatus primCopy32fC1M(const float* src, std::int32_t srcStep, float* dst, std::int32_t dstStep,
                          PrimSize size, const std::uint8_t* mask, std::int32_t maskStep) {
    if (const PrimStatus status = checkPlanes(size, src, dst, mask))
        return status;
    for (std::int32_t y = 0; y < size.height; ++y)
        for (std::int32_t x = 0; x < size.width; ++x)
            if (rowAt(mask, maskStep, y)[x] != 0)
                rowAt(dst, dstStep, y)[x] = rowAt(src, srcStep, y)[x];
    return primOk;
}

PrimStatus primMul32fC1I(const float* src, std::int32_t srcStep, float* srcDst,
                         std::int32_t srcDstStep, PrimSize size) {
    return forPixels(src, srcStep, srcDst, srcDstStep, size,
                     [](float s, float d) { return d * s; });
}

PrimStatus primTranspose32fC1(const float* src, std::int32_t srcStep, float* dst,
                              std::int32_t dstStep, PrimSize size) {
    if (const PrimStatus status = checkPlanes(size, src, dst))
        return status;
    for (std::int32_t y = 0; y < size.height; ++y)
        for (std::int32_t x = 0; x < size.width; ++x)
            rowAt(dst, dstStep, x)[y] = rowAt(src, srcStep, y)[x];
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
    for (std::int32_t y = 0; y < size.height; ++y)
        for (std::int32_t x = 0; x < size.width; ++x) {
            std::int64_t sum = 0;
            for (std::int32_t j = 0; j < kernelSize.height; ++j)
                for (std::int32_t i = 0; i < kernelSize.width; ++i)
                    sum += std::int64_t{kernel[std::ptrdiff_t{j} * kernelSize.width + i]} *
                           rowAt(src, srcStep, y + anchor.y - j)[x + anchor.x - i];
            rowAt(dst, dstStep, y)[x] = divided16s(sum, divisor);
        }
    return primOk;
}

PrimStatus primCopy8uC1C3(const std::uint8_t* src, std::int32_t srcStep, std::uint8_t* dst,
                          std::int32_t dstStep, PrimSize size) {
    return forChannel<3>(src, srcStep, dst, dstStep, size, [](std::uint8_t s) { return s; });
}

PrimStatus primCopy8uC1C4(const std::uint8_t* src, std::int32_t srcStep, std::uint8_t* dst,
                          std::int32_t dstStep, PrimSize size) {
    return forChannel<4>(src, srcStep, dst, dstStep, size, [](std::uint8_t s) { return s; });
}

PrimStatus primSetChannel8uC4(std::uint8_t c, std::uint8_t* dst, std::int32_t dstStep,
                              PrimSize size) {
    return forChannel<4>(dst, dstStep, dst, dstStep, size, [=](std::uint8_t) { return c; });
}

PrimStatus primResize8uC1(const std::uint8_t* src, PrimSize srcSize, std::int32_t srcStep,
                          PrimRect srcRect, std::uint8_t* dst, std::int32_t dstStep,
                          PrimSize dstSize, double xFactor, double yFactor,
                          std::int32_t interpolation) {
    if (src == nullptr || dst == nullptr)
        return primNullPtr;
    ResizePlan plan;
    if (const PrimStatus status =
            plan.setup(srcSize, srcRect, dstSize, xFactor, yFactor, interpolation))
        return status;
    // Of two pixels or rows the second need not exist when it has no weight.
    const auto alongRow = [&](std::int32_t y, const ResizeTap& tap) {
        const std::uint8_t* row = rowAt(src, srcStep, y) + tap.index;
        return (row[0] * tap.near + (tap.far != 0 ? row[1] * tap.far : 0) + 128) >> 8;
    };
    for (std::int32_t y = 0; y < plan.size().height; ++y)
        for (std::int32_t x = 0; x < plan.size().width; ++x) {
            const ResizeTap &column = plan.columns()[x], &row = plan.rows()[y];
            const std::int32_t below = row.far != 0 ? alongRow(row.index + 1, column) : 0;
            const std::int32_t v =
                (alongRow(row.index, column) * row.near + below * row.far + 524288) >> 20;
            rowAt(dst, dstStep, y)[x] = static_cast<std::uint8_t>(std::min(v, 255));
        }
    return primOk;
}

PrimStatus primMean8uC1(const std::uint8_t* src, std::int32_t srcStep, PrimSize size,
                        double* mean) {
    if (const PrimStatus status = checkPlanes(size, src, mean))
        return status;
    std::uint64_t sum = 0;
    for (std::int32_t y = 0; y < size.height; ++y)
        for (std::int32_t x = 0; x < size.width; ++x)
            sum += rowAt(src, srcStep, y)[x];
    *mean = static_cast<double>(sum) / (static_cast<double>(size.width) * size.height);
    return primOk;
}

} // namespace kt7
