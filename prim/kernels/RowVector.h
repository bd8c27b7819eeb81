// Rows of eight floats in the widest vectors that a target computes with.
//
// For kernel files only, which are compiled once per CPU target: all is internal to the file that
// includes it, or the linker would mix the targets.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kt7 {
namespace {

constexpr int side = 8;

#define KT7_INLINE inline __attribute__((always_inline))

#if defined(__AVX__)

using Row = float __attribute__((vector_size(32)));
typedef float LooseRow __attribute__((vector_size(32), aligned(4), may_alias));
using Mask = std::int32_t __attribute__((vector_size(32)));
// The widest vector that the target computes with.
using Wide = Row;
using WideMask = Mask;

KT7_INLINE void load(const float* from, Row& row) {
    row = *reinterpret_cast<const LooseRow*>(from);
}
KT7_INLINE void store(const Row& row, float* to) {
    *reinterpret_cast<LooseRow*>(to) = row;
}

KT7_INLINE Row magnitude(const Row& c) {
    return Row(Mask(c) & 0x7fffffff);
}
KT7_INLINE bool anyOf(const Mask& m) {
    using Bits = long long __attribute__((vector_size(32)));
    return __builtin_ia32_ptestz256(Bits(m), Bits(m)) == 0;
}

/// Zeroes the elements of c that are strictly between -t and t, and counts them down in each lane.
KT7_INLINE void dropWeak(Row& c, const Row& t, Mask& dropped) {
    const Mask weak = magnitude(c) < t;
    c = weak ? Row{} : c;
    dropped += weak;
}

KT7_INLINE void transpose8(Row (&x)[side]) {
    Row pairs[side], quads[side];
    for (int i = 0; i < side; i += 2) {
        pairs[i] = __builtin_shufflevector(x[i], x[i + 1], 0, 8, 1, 9, 4, 12, 5, 13);
        pairs[i + 1] = __builtin_shufflevector(x[i], x[i + 1], 2, 10, 3, 11, 6, 14, 7, 15);
    }
    for (int i = 0; i < side; i += 4)
        for (int j = 0; j < 2; ++j) {
            const Row &low = pairs[i + j], &high = pairs[i + j + 2];
            quads[i + 2 * j] = __builtin_shufflevector(low, high, 0, 1, 8, 9, 4, 5, 12, 13);
            quads[i + 2 * j + 1] = __builtin_shufflevector(low, high, 2, 3, 10, 11, 6, 7, 14, 15);
        }
    for (int i = 0; i < 4; ++i) {
        x[i] = __builtin_shufflevector(quads[i], quads[i + 4], 0, 1, 2, 3, 8, 9, 10, 11);
        x[i + 4] = __builtin_shufflevector(quads[i], quads[i + 4], 4, 5, 6, 7, 12, 13, 14, 15);
    }
}

#else

// Compilers take vectors wider than the target's apart into single elements, so a row is two
// halves.
using Half = float __attribute__((vector_size(16)));
typedef float LooseHalf __attribute__((vector_size(16), aligned(4), may_alias));
using HalfMask = std::int32_t __attribute__((vector_size(16)));
using Wide = Half;
using WideMask = HalfMask;

struct Row {
    Half low, high;
    KT7_INLINE float operator[](int i) const { return i < 4 ? low[i] : high[i - 4]; }
};
struct Mask {
    HalfMask low, high;
    KT7_INLINE std::int32_t operator[](int i) const { return i < 4 ? low[i] : high[i - 4]; }
};

KT7_INLINE Row operator+(const Row& a, const Row& b) {
    return {a.low + b.low, a.high + b.high};
}
KT7_INLINE Row operator-(const Row& a, const Row& b) {
    return {a.low - b.low, a.high - b.high};
}
KT7_INLINE Row operator*(const Row& a, float b) {
    return {a.low * b, a.high * b};
}
KT7_INLINE Row operator*(float a, const Row& b) {
    return b * a;
}
KT7_INLINE void operator+=(Row& a, const Row& b) {
    a = a + b;
}
KT7_INLINE void operator+=(Mask& a, const Mask& b) {
    a = {a.low + b.low, a.high + b.high};
}
KT7_INLINE Mask operator+(const Mask& a, std::int32_t b) {
    return {a.low + b, a.high + b};
}
KT7_INLINE void operator*=(Row& a, float b) {
    a = a * b;
}

KT7_INLINE void load(const float* from, Half& half) {
    half = *reinterpret_cast<const LooseHalf*>(from);
}
KT7_INLINE void load(const float* from, Row& row) {
    load(from, row.low);
    load(from + 4, row.high);
}
KT7_INLINE void store(const Row& row, float* to) {
    *reinterpret_cast<LooseHalf*>(to) = row.low;
    *reinterpret_cast<LooseHalf*>(to + 4) = row.high;
}

KT7_INLINE Half magnitude(const Half& c) {
    return Half(HalfMask(c) & 0x7fffffff);
}
KT7_INLINE bool anyOf(const Mask& m) {
    using Bits = long long __attribute__((vector_size(16)));
    const Bits bits = Bits(m.low | m.high);
    return (bits[0] | bits[1]) != 0;
}

KT7_INLINE void dropWeak(Half& c, const Half& t, HalfMask& dropped) {
    const HalfMask weak = magnitude(c) < t;
    c = weak ? Half{} : c;
    dropped += weak;
}
/// Zeroes the elements of c that are strictly between -t and t, and counts them down in each lane.
KT7_INLINE void dropWeak(Row& c, const Row& t, Mask& dropped) {
    dropWeak(c.low, t.low, dropped.low);
    dropWeak(c.high, t.high, dropped.high);
}

KT7_INLINE void transpose4(Half& a, Half& b, Half& c, Half& d) {
    const Half ab = __builtin_shufflevector(a, b, 0, 4, 1, 5);
    const Half cd = __builtin_shufflevector(c, d, 0, 4, 1, 5);
    const Half abHigh = __builtin_shufflevector(a, b, 2, 6, 3, 7);
    const Half cdHigh = __builtin_shufflevector(c, d, 2, 6, 3, 7);
    a = __builtin_shufflevector(ab, cd, 0, 1, 4, 5);
    b = __builtin_shufflevector(ab, cd, 2, 3, 6, 7);
    c = __builtin_shufflevector(abHigh, cdHigh, 0, 1, 4, 5);
    d = __builtin_shufflevector(abHigh, cdHigh, 2, 3, 6, 7);
}

KT7_INLINE void transpose8(Row (&x)[side]) {
    transpose4(x[0].low, x[1].low, x[2].low, x[3].low);
    transpose4(x[4].high, x[5].high, x[6].high, x[7].high);
    transpose4(x[0].high, x[1].high, x[2].high, x[3].high);
    transpose4(x[4].low, x[5].low, x[6].low, x[7].low);
    for (int i = 0; i < 4; ++i) {
        const Half swapped = x[i].high;
        x[i].high = x[i + 4].low;
        x[i + 4].low = swapped;
    }
}

#endif

// Eight rows that lie `stride` samples apart. Unrolled by force: an array that a loop runs over
// would stay in memory.
template <int count = side>
KT7_INLINE void load8(const float* from, std::ptrdiff_t stride, Row (&x)[side]) {
#pragma GCC unroll 8
    for (int i = 0; i < count; ++i)
        load(from + i * stride, x[i]);
}
KT7_INLINE void store8(const Row (&x)[side], float* to, std::ptrdiff_t stride) {
#pragma GCC unroll 8
    for (int i = 0; i < side; ++i)
        store(x[i], to + i * stride);
}

} // namespace
} // namespace kt7
