// Argument checks and row loops that the plane operations share.
#pragma once

#include "prim/primtypes.h"
#include "prim/rows.h"

namespace kt7 {

/// Checks pointers, then the size.
template <class... T>
inline PrimStatus checkPlanes(PrimSize size, const T*... planes) {
    if (((planes == nullptr) || ...))
        return primNullPtr;
    return checkSize(size);
}

/// Checks pointers, then the length of vectors.
template <class... T>
inline PrimStatus checkVectors(std::int32_t length, const T*... vectors) {
    if (((vectors == nullptr) || ...))
        return primNullPtr;
    return length < 1 ? primBadSize : primOk;
}

/// Checks the arguments of a convolution.
template <class T>
inline PrimStatus checkConvolution(const T* src, std::int32_t srcStep, const T* dst,
                                   std::int32_t dstStep, PrimSize size, const void* kernel,
                                   PrimSize kernelSize) {
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

/// Calls body(srcRow, dstRow) for each row of two planes whose arguments have been checked.
template <class S, class D, class Body>
inline PrimStatus forRows(const S* src, std::int32_t srcStep, D* dst, std::int32_t dstStep,
                          PrimSize size, Body body) {
    for (std::int32_t y = 0; y < size.height; ++y)
        body(rowAt(src, srcStep, y), rowAt(dst, dstStep, y));
    return primOk;
}

/// Calls body(row) for each row of a plane whose arguments have been checked.
template <class T, class Body>
inline PrimStatus forRows(T* plane, std::int32_t step, PrimSize size, Body body) {
    for (std::int32_t y = 0; y < size.height; ++y)
        body(rowAt(plane, step, y));
    return primOk;
}

} // namespace kt7
