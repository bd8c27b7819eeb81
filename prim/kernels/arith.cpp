#include "prim/kernels/KernelTable.h"

namespace kt7 {
namespace {

void add(const float* src, float* row, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x)
        row[x] += src[x];
}

void sub(const float* src, float* row, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x)
        row[x] -= src[x];
}

void mul(const float* src, float* row, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x)
        row[x] *= src[x];
}

std::int32_t div(const float* src, float* row, std::int32_t n) {
    std::int32_t zeros = 0;
    for (std::int32_t x = 0; x < n; ++x) {
        // Adding +0 turns -0 into +0, so that the sign of the quotient is the dividend's.
        const float divisor = src[x] + 0.0f;
        zeros |= divisor == 0.0f ? 1 : 0;
        row[x] /= divisor;
    }
    return zeros;
}

void subFrom(const float* src1, const float* src2, float* dst, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x)
        dst[x] = src2[x] - src1[x];
}

void addC(const float* src, float c, float* dst, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x)
        dst[x] = src[x] + c;
}

void subC(const float* src, float c, float* dst, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x)
        dst[x] = src[x] - c;
}

void mulC(const float* src, float c, float* dst, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x)
        dst[x] = src[x] * c;
}

void absRow(float* row, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x)
        row[x] = __builtin_fabsf(row[x]);
}

void magnitude(const float* re, const float* im, float* dst, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x)
        dst[x] = __builtin_sqrtf(re[x] * re[x] + im[x] * im[x]);
}

} // namespace

const ArithKernels KT7_NAME(arithKernels){&add,  &sub,  &mul,  &div,    &subFrom,
                                          &addC, &subC, &mulC, &absRow, &magnitude};

} // namespace kt7
