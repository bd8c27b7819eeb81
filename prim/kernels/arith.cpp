#include "prim/kernels/KernelTable.h"

namespace kt7 {
namespace {

void mulC32f(float c, float* row, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x) row[x] *= c;
}

}  // namespace

const ArithKernels KT7_NAME(arithKernels){&mulC32f};

}  // namespace kt7
