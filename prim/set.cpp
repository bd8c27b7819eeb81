#include "prim/set.h"

#include <algorithm>

#include "prim/checks.h"

namespace kt7 {
namespace {

template <class T>
PrimStatus setPlane(T c, T* dst, std::int32_t dstStep, PrimSize size) {
    if (const PrimStatus status = checkPlanes(size, dst))
        return status;
    return forRows(dst, dstStep, size, [=](T* row) { std::fill_n(row, size.width, c); });
}

} // namespace

PrimStatus primSet8uC1(std::uint8_t c, std::uint8_t* dst, std::int32_t dstStep, PrimSize size) {
    return setPlane(c, dst, dstStep, size);
}

PrimStatus primSet16sC1(std::int16_t c, std::int16_t* dst, std::int32_t dstStep, PrimSize size) {
    return setPlane(c, dst, dstStep, size);
}

PrimStatus primSet32fC1(float c, float* dst, std::int32_t dstStep, PrimSize size) {
    return setPlane(c, dst, dstStep, size);
}

PrimStatus primSet32f(float c, float* dst, std::int32_t length) {
    if (const PrimStatus status = checkVectors(length, dst))
        return status;
    std::fill_n(dst, length, c);
    return primOk;
}

} // namespace kt7
