#include "prim/kernels/KernelTable.h"

namespace kt7 {
namespace {

void add(const float* src, float* row, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x)
        row[x] += src[x];
}

void addC(const float* src, float c, float* dst, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x)
        dst[x] = src[x] + c;
}

void mulC(const float* src, float c, float* dst, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x)
        dst[x] = src[x] * c;
}

void absRow(float* row, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x)
        row[x] = __builtin_fabsf(row[x]);
}

} // namespace

const ArithKernels KT7_NAME(arithKernels){&add, &addC, &mulC, &absRow};

} // namespace kt7
