#include "prim/copy.h"

#include <algorithm>
#include <cstring>

#include "prim/checks.h"
#include "prim/kernels/KernelTable.h"

namespace kt7 {
namespace {

template <class T>
PrimStatus copyPlane(const T* src, std::int32_t srcStep, T* dst, std::int32_t dstStep,
                     PrimSize size) {
    if (const PrimStatus status = checkPlanes(size, src, dst))
        return status;
    const std::size_t rowBytes = static_cast<std::size_t>(size.width) * sizeof(T);
    return forRows(src, srcStep, dst, dstStep, size,
                   [=](const T* from, T* to) { std::memcpy(to, from, rowBytes); });
}

template <int pixelSamples>
PrimStatus copyToChannel(const std::uint8_t* src, std::int32_t srcStep, std::uint8_t* dst,
                         std::int32_t dstStep, PrimSize size) {
    if (const PrimStatus status = checkPlanes(size, src, dst))
        return status;
    return forRows(src, srcStep, dst, dstStep, size,
                   [=](const std::uint8_t* from, std::uint8_t* to) {
                       for (std::int32_t x = 0; x < size.width; ++x)
                           to[std::ptrdiff_t{pixelSamples} * x] = from[x];
                   });
}

} // namespace

PrimStatus primCopy16sC1(const std::int16_t* src, std::int32_t srcStep, std::int16_t* dst,
                         std::int32_t dstStep, PrimSize size) {
    return copyPlane(src, srcStep, dst, dstStep, size);
}

PrimStatus primCopy32fC1(const float* src, std::int32_t srcStep, float* dst, std::int32_t dstStep,
                         PrimSize size) {
    return copyPlane(src, srcStep, dst, dstStep, size);
}

PrimStatus primCopy32f(const float* src, float* dst, std::int32_t length) {
    if (const PrimStatus status = checkVectors(length, src, dst))
        return status;
    std::memcpy(dst, src, static_cast<std::size_t>(length) * sizeof(float));
    return primOk;
}

PrimStatus primCopy32fC1M(const float* src, std::int32_t srcStep, float* dst, std::int32_t dstStep,
                          PrimSize size, const std::uint8_t* mask, std::int32_t maskStep) {
    if (const PrimStatus status = checkPlanes(size, src, dst, mask))
        return status;
    for (std::int32_t y = 0; y < size.height; ++y)
        thresholdKernels->copyMasked(rowAt(src, srcStep, y), rowAt(mask, maskStep, y),
                                     rowAt(dst, dstStep, y), size.width);
    return primOk;
}

PrimStatus primCopy8uC1C3(const std::uint8_t* src, std::int32_t srcStep, std::uint8_t* dst,
                          std::int32_t dstStep, PrimSize size) {
    return copyToChannel<3>(src, srcStep, dst, dstStep, size);
}

PrimStatus primCopy8uC1C4(const std::uint8_t* src, std::int32_t srcStep, std::uint8_t* dst,
                          std::int32_t dstStep, PrimSize size) {
    return copyToChannel<4>(src, srcStep, dst, dstStep, size);
}

PrimStatus primTranspose32fC1(const float* src, std::int32_t srcStep, float* dst,
                              std::int32_t dstStep, PrimSize size) {
    if (const PrimStatus status = checkPlanes(size, src, dst))
        return status;
    // One cache line of floats a side: the lines of a square stay in the first-level cache.
    constexpr std::int32_t side = 16;
    for (std::int32_t y0 = 0; y0 < size.height; y0 += side) {
        const std::int32_t y1 = std::min(size.height, y0 + side);
        for (std::int32_t x0 = 0; x0 < size.width; x0 += side) {
            const std::int32_t x1 = std::min(size.width, x0 + side);
            for (std::int32_t x = x0; x < x1; ++x) {
                float* to = rowAt(dst, dstStep, x);
                for (std::int32_t y = y0; y < y1; ++y)
                    to[y] = rowAt(src, srcStep, y)[x];
            }
        }
    }
    return primOk;
}

} // namespace kt7
