#include "prim/convert.h"

#include "prim/checks.h"
#include "prim/kernels/KernelTable.h"

namespace kt7 {
namespace {

template <class S, class D>
PrimStatus convertPlane(const S* src, std::int32_t srcStep, D* dst, std::int32_t dstStep,
                        PrimSize size, void (*kernel)(const S*, D*, std::int32_t)) {
    if (const PrimStatus status = checkPlanes(size, src, dst))
        return status;
    if (kernel == nullptr)
        return primBadArg;
    return forRows(src, srcStep, dst, dstStep, size,
                   [=](const S* from, D* to) { kernel(from, to, size.width); });
}

} // namespace

PrimStatus primConvert16s32fC1(const std::int16_t* src, std::int32_t srcStep, float* dst,
                               std::int32_t dstStep, PrimSize size) {
    return convertPlane(src, srcStep, dst, dstStep, size, convertKernels->from16s);
}

PrimStatus primConvert8u16uC1(const std::uint8_t* src, std::int32_t srcStep, std::uint16_t* dst,
                              std::int32_t dstStep, PrimSize size) {
    return convertPlane(src, srcStep, dst, dstStep, size, convertKernels->widen8u);
}

PrimStatus primConvert16u8uC1(const std::uint16_t* src, std::int32_t srcStep, std::uint8_t* dst,
                              std::int32_t dstStep, PrimSize size) {
    return convertPlane(src, srcStep, dst, dstStep, size, convertKernels->narrow16u);
}

PrimStatus primConvert32f8uC1(const float* src, std::int32_t srcStep, std::uint8_t* dst,
                              std::int32_t dstStep, PrimSize size, std::int32_t rounding) {
    return convertPlane(src, srcStep, dst, dstStep, size,
                        rounding == primTruncate  ? convertKernels->truncTo8u
                        : rounding == primNearest ? convertKernels->roundTo8u
                                                  : nullptr);
}

PrimStatus primConvert32f16sC1(const float* src, std::int32_t srcStep, std::int16_t* dst,
                               std::int32_t dstStep, PrimSize size, std::int32_t rounding) {
    return convertPlane(src, srcStep, dst, dstStep, size,
                        rounding == primTruncate  ? convertKernels->truncTo16s
                        : rounding == primNearest ? convertKernels->roundTo16s
                                                  : nullptr);
}

} // namespace kt7
