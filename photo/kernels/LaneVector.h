// Vectors of as many floats as a target computes with at once.
//
// For kernel files only, which are compiled once per CPU target: all is internal to the file that
// includes it, or the linker would mix the targets.
#pragma once

#include <cstdint>
#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace kt7::photo {
namespace {

#define KT7_INLINE inline __attribute__((always_inline))

#if defined(__AVX512F__)
constexpr int lanes = 16;
#elif defined(__AVX__)
constexpr int lanes = 8;
#else
constexpr int lanes = 4;
#endif

using Lanes = float __attribute__((vector_size(lanes * sizeof(float))));
typedef float LooseLanes
    __attribute__((vector_size(lanes * sizeof(float)), aligned(alignof(float)), may_alias));

KT7_INLINE Lanes load(const float* from) {
    return *reinterpret_cast<const LooseLanes*>(from);
}
KT7_INLINE void store(const Lanes& v, float* to) {
    *reinterpret_cast<LooseLanes*>(to) = v;
}

KT7_INLINE Lanes lesser(const Lanes& a, const Lanes& b) {
    return a < b ? a : b;
}
KT7_INLINE Lanes greater(const Lanes& a, const Lanes& b) {
    return a > b ? a : b;
}

/// a / b for b above 0, to about 22 bits.
KT7_INLINE Lanes quotient(const Lanes& a, const Lanes& b) {
#if defined(__AVX512F__)
    const Lanes guess = _mm512_maskz_rcp14_ps(0xffff, b);
#elif defined(__AVX__)
    const Lanes guess = _mm256_rcp_ps(b);
#elif defined(__SSE__)
    const Lanes guess = _mm_rcp_ps(b);
#endif
#if defined(__SSE__)
    return a * (guess * (2.0f - b * guess)); // one step of Newton's method
#else
    return a / b;
#endif
}

/// Bit i is set where a[i] <= b[i].
KT7_INLINE std::uint32_t whereAtMost(const Lanes& a, const Lanes& b) {
#if defined(__AVX512F__)
    return _mm512_cmp_ps_mask(a, b, _CMP_LE_OQ);
#elif defined(__AVX__)
    return static_cast<std::uint32_t>(_mm256_movemask_ps(a <= b));
#elif defined(__SSE__)
    return static_cast<std::uint32_t>(_mm_movemask_ps(a <= b));
#else
    std::uint32_t bits = 0;
    for (int i = 0; i < lanes; ++i)
        bits |= (a[i] <= b[i] ? 1u : 0u) << i;
    return bits;
#endif
}

} // namespace
} // namespace kt7::photo
