#include "prim/arith.h"

#include <algorithm>

#include "prim/checks.h"
#include "prim/kernels/KernelTable.h"

namespace kt7 {
namespace {

template <class T>
PrimStatus scaledInPlace(const T* src, std::int32_t srcStep, T* srcDst, std::int32_t srcDstStep,
                         PrimSize size, std::int32_t scale,
                         void (*kernel)(const T*, T*, std::int32_t, std::int32_t)) {
    if (const PrimStatus status = checkPlanes(size, src, srcDst))
        return status;
    return forRows(src, srcStep, srcDst, srcDstStep, size,
                   [=](const T* from, T* row) { kernel(from, row, size.width, scale); });
}

template <class T>
PrimStatus scaledConstant(const T* src, std::int32_t srcStep, T c, T* dst, std::int32_t dstStep,
                          PrimSize size, std::int32_t scale,
                          void (*kernel)(const T*, T, T*, std::int32_t, std::int32_t)) {
    if (const PrimStatus status = checkPlanes(size, src, dst))
        return status;
    return forRows(src, srcStep, dst, dstStep, size,
                   [=](const T* from, T* to) { kernel(from, c, to, size.width, scale); });
}

PrimStatus floatInPlace(const float* src, std::int32_t srcStep, float* srcDst,
                        std::int32_t srcDstStep, PrimSize size,
                        void (*kernel)(const float*, float*, std::int32_t)) {
    if (const PrimStatus status = checkPlanes(size, src, srcDst))
        return status;
    return forRows(src, srcStep, srcDst, srcDstStep, size,
                   [=](const float* from, float* row) { kernel(from, row, size.width); });
}

PrimStatus floatConstant(const float* src, std::int32_t srcStep, float c, float* dst,
                         std::int32_t dstStep, PrimSize size,
                         void (*kernel)(const float*, float, float*, std::int32_t)) {
    if (const PrimStatus status = checkPlanes(size, src, dst))
        return status;
    return forRows(src, srcStep, dst, dstStep, size,
                   [=](const float* from, float* to) { kernel(from, c, to, size.width); });
}

} // namespace

PrimStatus primAdd16sC1I(const std::int16_t* src, std::int32_t srcStep, std::int16_t* srcDst,
                         std::int32_t srcDstStep, PrimSize size, std::int32_t scale) {
    return scaledInPlace(src, srcStep, srcDst, srcDstStep, size, scale, scaledKernels->add16s);
}

PrimStatus primSub16sC1I(const std::int16_t* src, std::int32_t srcStep, std::int16_t* srcDst,
                         std::int32_t srcDstStep, PrimSize size, std::int32_t scale) {
    return scaledInPlace(src, srcStep, srcDst, srcDstStep, size, scale, scaledKernels->sub16s);
}

PrimStatus primSub8uC1I(const std::uint8_t* src, std::int32_t srcStep, std::uint8_t* srcDst,
                        std::int32_t srcDstStep, PrimSize size, std::int32_t scale) {
    return scaledInPlace(src, srcStep, srcDst, srcDstStep, size, scale, scaledKernels->sub8u);
}

PrimStatus primSubC8uC1(const std::uint8_t* src, std::int32_t srcStep, std::uint8_t c,
                        std::uint8_t* dst, std::int32_t dstStep, PrimSize size,
                        std::int32_t scale) {
    return scaledConstant(src, srcStep, c, dst, dstStep, size, scale, scaledKernels->subC8u);
}

PrimStatus primSubC8uC1I(std::uint8_t c, std::uint8_t* srcDst, std::int32_t srcDstStep,
                         PrimSize size, std::int32_t scale) {
    return primSubC8uC1(srcDst, srcDstStep, c, srcDst, srcDstStep, size, scale);
}

PrimStatus primSubC16uC1(const std::uint16_t* src, std::int32_t srcStep, std::uint16_t c,
                         std::uint16_t* dst, std::int32_t dstStep, PrimSize size,
                         std::int32_t scale) {
    return scaledConstant(src, srcStep, c, dst, dstStep, size, scale, scaledKernels->subC16u);
}

PrimStatus primMulC8uC1I(std::uint8_t c, std::uint8_t* srcDst, std::int32_t srcDstStep,
                         PrimSize size, std::int32_t scale) {
    if (const PrimStatus status = checkPlanes(size, srcDst))
        return status;
    return forRows(srcDst, srcDstStep, size,
                   [=](std::uint8_t* row) { scaledKernels->mulC8u(c, row, size.width, scale); });
}

PrimStatus primMulC8uC3I(const std::uint8_t* c, std::uint8_t* srcDst, std::int32_t srcDstStep,
                         PrimSize size, std::int32_t scale) {
    if (const PrimStatus status = checkPlanes(size, c, srcDst))
        return status;
    return forRows(srcDst, srcDstStep, size,
                   [=](std::uint8_t* row) { scaledKernels->mulC8uC3(c, row, size.width, scale); });
}

PrimStatus primAddC16uC1I(std::uint16_t c, std::uint16_t* srcDst, std::int32_t srcDstStep,
                          PrimSize size, std::int32_t scale) {
    if (const PrimStatus status = checkPlanes(size, srcDst))
        return status;
    return forRows(srcDst, srcDstStep, size,
                   [=](std::uint16_t* row) { scaledKernels->addC16u(c, row, size.width, scale); });
}

PrimStatus primAdd32fC1I(const float* src, std::int32_t srcStep, float* srcDst,
                         std::int32_t srcDstStep, PrimSize size) {
    return floatInPlace(src, srcStep, srcDst, srcDstStep, size, arithKernels->add);
}

PrimStatus primAddC32fC1I(float c, float* srcDst, std::int32_t srcDstStep, PrimSize size) {
    return floatConstant(srcDst, srcDstStep, c, srcDst, srcDstStep, size, arithKernels->addC);
}

PrimStatus primMulC32fC1I(float c, float* srcDst, std::int32_t srcDstStep, PrimSize size) {
    return floatConstant(srcDst, srcDstStep, c, srcDst, srcDstStep, size, arithKernels->mulC);
}

PrimStatus primAbs32fC1I(float* srcDst, std::int32_t srcDstStep, PrimSize size) {
    if (const PrimStatus status = checkPlanes(size, srcDst))
        return status;
    return forRows(srcDst, srcDstStep, size,
                   [=](float* row) { arithKernels->abs(row, size.width); });
}

PrimStatus primMulC32fI(float c, float* srcDst, std::int32_t length) {
    if (const PrimStatus status = checkVectors(length, srcDst))
        return status;
    if (c == 0.0f)
        std::fill_n(srcDst, length, 0.0f);
    else if (c != 1.0f)
        arithKernels->mulC(srcDst, c, srcDst, length);
    return primOk;
}

} // namespace kt7
