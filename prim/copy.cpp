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

} // namespace kt7
