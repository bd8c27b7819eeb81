// Row kernels: the tables of entry points, one struct per kernel file, and the chosen ones.
//
// Each file in this folder is compiled once per CPU target and defines one table, named by
// KT7_NAME; select.cpp points the chosen tables at the best target when the library is loaded.
// Kernels take plain pointers and lengths that their callers have checked.
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

/// Exact row steps of the 16-bit Laplacian pyramid.
struct PyramidKernels {
    /// One row of the half-size low-pass image from five rows of `width` samples. scratch: at least
    /// 3 * (outWidth + 2) elements; outWidth at most width / 2.
    void (*reduceRow)(const std::int16_t* const rows[5], std::int32_t width, std::int32_t outWidth,
                      std::int32_t* scratch, std::int16_t* dst);
    /// One row of the double-size image: an odd one from the rows `here` and `below` it, an even
    /// one from all three. Rows have srcWidth samples; scratch: at least 3 * (width / 2 + 4)
    /// elements.
    void (*expandRow)(const std::int16_t* above, const std::int16_t* here,
                      const std::int16_t* below, std::int32_t srcWidth, std::int32_t odd,
                      std::int32_t* scratch, std::int16_t* dst, std::int32_t width);
    void (*addSaturated)(const std::int16_t* src, std::int16_t* srcDst, std::int32_t n);
    void (*subSaturated)(const std::int16_t* src, std::int16_t* srcDst, std::int32_t n);
};
KT7_DECLARE_KERNELS(PyramidKernels, pyramidKernels);

/// Exact transfers between 16-bit planes and float tiles.
struct TileKernels {
    /// dst = src * scale.
    void (*load)(const std::int16_t* src, float scale, float* dst, std::int32_t n);
    /// row = row * scale, held within +-limit.
    void (*scaleAndHold)(float scale, float limit, float* row, std::int32_t n);
    /// dst = src to the nearest integer, ties to even; src within 16 bits.
    void (*storeRounded)(const float* src, std::int16_t* dst, std::int32_t n);
    /// dst = src, or a mix of src (weight w) and dst (1 - w) where dst is not `unwritten`;
    /// truncated. The weight of element x is weight[x * weightStride].
    void (*blend)(const float* src, const float* weight, std::int32_t weightStride,
                  std::int16_t unwritten, std::int16_t* dst, std::int32_t n);
};
KT7_DECLARE_KERNELS(TileKernels, tileKernels);

} // namespace kt7
