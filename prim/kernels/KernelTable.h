// Row kernels: the tables of entry points, one struct per kernel file, and the chosen ones.
//
// Each file in this folder is compiled once per CPU target and defines one table, named by KT7_NAME;
// select.cpp points the chosen tables at the best target when the library is loaded. Kernels take
// plain pointers and lengths that their callers have checked.
#pragma once

#include <cstdint>

#include "prim/kernels/KernelTarget.h"

namespace kt7 {

/// Declares the per-target instances of a table and the pointer to the chosen one.
#if defined(__x86_64__)
#define KT7_DECLARE_KERNELS(Type, name)                                                            \
    extern const Type name##_generic;                                                              \
    extern const Type name##_avx2;                                                                 \
    extern const Type name##_avx512;                                                               \
    extern const Type* name
#else
#define KT7_DECLARE_KERNELS(Type, name)                                                            \
    extern const Type name##_generic;                                                              \
    extern const Type* name
#endif

/// Exact elementwise operations on rows of n elements.
struct ArithKernels {
    void (*mulC32f)(float c, float* row, std::int32_t n);
};
KT7_DECLARE_KERNELS(ArithKernels, arithKernels);

}  // namespace kt7
