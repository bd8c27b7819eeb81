// Block transforms, the group filter built on them, and the matcher's features and choices. Every
// transform runs on rows of eight floats; the multiply-adds of the cosine products decide its
// speed, so this file is built with contraction.
#include "prim/kernels/KernelTable.h"

namespace kt7 {
namespace {

constexpr int side = 8;
constexpr int blockSize = side * side;

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

// Square root of 2 times the cosines of pi/16, 3pi/16, 5pi/16, 7pi/16, pi/8 and 3pi/8.
constexpr float c1 = 1.3870399f, c3 = 1.1758755f, c5 = 0.78569496f, c7 = 0.27589938f;
constexpr float c2 = 1.306563f, c6 = 0.5411961f;
constexpr float rootEighth = 0.35355338f;

/// Eight-point DCT-II along the index of x, lane by lane, larger by the square root of 8 than the
/// orthonormal one: three axes of it need no scaling until the very end.
KT7_INLINE void forward8(Row (&x)[side]) {
    const Row a = x[0] + x[7], b = x[3] + x[4], c = x[1] + x[6], d = x[2] + x[5];
    const Row e = x[0] - x[7], f = x[6] - x[1], g = x[2] - x[5], h = x[4] - x[3];
    const Row s = a + b, t = a - b, u = c + d, v = c - d;
    x[0] = s + u;
    x[4] = s - u;
    x[2] = c2 * t + c6 * v;
    x[6] = c6 * t - c2 * v;
    x[1] = c1 * e - c3 * f + c5 * g - c7 * h;
    x[3] = c3 * e + c7 * f - c1 * g + c5 * h;
    x[5] = c5 * e + c1 * f + c7 * g - c3 * h;
    x[7] = c7 * e + c5 * f + c3 * g + c1 * h;
}

/// Transposed flow of forward8, larger than the inverse of the orthonormal DCT by the same factor.
/// Only the first `given` of x, 4 or 8, are looked at; the rest counts as zero.
template <int given = side>
KT7_INLINE void inverse8(Row (&x)[side]) {
    Row p = c2 * x[2], q = c6 * x[2], s = x[0], d = x[0];
    Row o0 = c1 * x[1] + c3 * x[3], o1 = c5 * x[3] - c7 * x[1];
    Row o2 = c3 * x[1] - c7 * x[3], o3 = c5 * x[1] - c1 * x[3];
    if constexpr (given == side) {
        p = p + c6 * x[6];
        q = q - c2 * x[6];
        s = s + x[4];
        d = d - x[4];
        o0 = o0 + c5 * x[5] + c7 * x[7];
        o1 = o1 - c3 * x[5] + c1 * x[7];
        o2 = o2 - c1 * x[5] - c5 * x[7];
        o3 = o3 + c7 * x[5] + c3 * x[7];
    }
    const Row a = s + p, b = s - p, c = d + q, e = d - q;
    x[0] = a + o0;
    x[7] = a - o0;
    x[4] = b + o1;
    x[3] = b - o1;
    x[1] = c + o2;
    x[6] = c - o2;
    x[2] = e + o3;
    x[5] = e - o3;
}

KT7_INLINE void scale8(Row (&x)[side], float factor) {
    for (Row& row : x)
        row *= factor;
}

void dct8x8Forward(float* block) {
    Row x[side];
    load8(block, side, x);
    forward8(x);
    transpose8(x);
    forward8(x);
    transpose8(x);
    scale8(x, rootEighth * rootEighth);
    store8(x, block, side);
}

void dct8x8Inverse(float* block) {
    Row x[side];
    load8(block, side, x);
    inverse8(x);
    transpose8(x);
    inverse8(x);
    transpose8(x);
    scale8(x, rootEighth * rootEighth);
    store8(x, block, side);
}

template <bool isForward>
KT7_INLINE void groupAxis(float* cube) {
    for (int at = 0; at < blockSize; at += side) {
        Row x[side];
        load8(cube + at, blockSize, x);
        if constexpr (isForward)
            forward8(x);
        else
            inverse8(x);
        scale8(x, rootEighth);
        store8(x, cube + at, blockSize);
    }
}

void cubeForward(float* cube) {
    for (int j = 0; j < side; ++j)
        dct8x8Forward(cube + j * blockSize);
    groupAxis<true>(cube);
}

void cubeInverse(float* cube) {
    for (int j = 0; j < side; ++j)
        dct8x8Inverse(cube + j * blockSize);
    groupAxis<false>(cube);
}

KT7_INLINE float sumOf(const Row& row) {
    return ((row[0] + row[1]) + (row[2] + row[3])) + ((row[4] + row[5]) + (row[6] + row[7]));
}

/// What thresholding a group has found out.
struct Survivors {
    std::int32_t kept;
    float sumAll, sumKept; // in the cube's enlarged units; only with sums asked for
    float mean;            // element 0 after thresholding
    // Whether something but the first four rows, or lanes, of the slices survived.
    bool highRows, highLanes;
};

/// Transform along the group, threshold, and transform back, one row of the eight slices at a time:
/// coefficients never leave the registers. Of most groups little survives but low frequencies, so
/// what is zero is not transformed back.
template <bool withSums>
KT7_INLINE void shrinkGroup(float* cube, const float* thresholds, Survivors& found) {
    Mask kept = {};
    Row sumAll = {}, sumKept = {};
    found.highRows = false;
    for (int at = 0; at < blockSize; at += side) {
        Row x[side], t;
        load8(cube + at, blockSize, x);
        load(thresholds + at, t);
        forward8(x);
        Mask dropped = {};
#pragma GCC unroll 8
        for (Row& c : x) {
            if constexpr (withSums)
                sumAll += c;
            dropWeak(c, t, dropped); // one as large as its threshold survives
            if constexpr (withSums)
                sumKept += c;
        }
        if (at == 0)
            found.mean = x[0][0];
        const Mask keptHere = dropped + side;
        if (anyOf(keptHere)) {
            kept += keptHere;
            found.highRows |= at >= blockSize / 2;
            inverse8(x);
        }
        store8(x, cube + at, blockSize);
    }
    found.kept = 0;
    for (int i = 0; i < side; ++i)
        found.kept += kept[i];
    found.highLanes = (kept[4] | kept[5] | kept[6] | kept[7]) != 0;
    if constexpr (withSums) {
        found.sumAll = sumOf(sumAll);
        found.sumKept = sumOf(sumKept);
    }
}

// Three enlarged axes there and three back make 512; there alone, its square root.
constexpr float cubeEnlargement = 22.627417f;

/// Takes the eight slices out of the frequencies and adds them to the sums, times `factor`.
template <int rows, int lanes>
void addSlices(const GroupFilterJob& job, const std::ptrdiff_t (&sumsAt)[side], float factor) {
    for (int j = 0; j < side; ++j) {
        Row x[side];
        load8<rows>(job.cube + j * blockSize, side, x);
        inverse8<rows>(x);
        transpose8(x);
        inverse8<lanes>(x);
        float* to = job.sums + sumsAt[j];
#pragma GCC unroll 8
        for (int i = 0; i < side; ++i) {
            Row sum;
            load(to + i * job.sumsStride, sum);
            sum += x[i] * factor;
            store(sum, to + i * job.sumsStride);
        }
    }
}

template <bool withBoost>
void filterGroupsWith(const GroupFilterJob& job) {
    alignas(64) float thresholds[blockSize];
    for (int v = 0; v < side; ++v) // slices stand transposed in the cube
        for (int u = 0; u < side; ++u)
            thresholds[u * side + v] = job.thresholds[v * side + u] * cubeEnlargement;
    float* const cube = job.cube;
    const double perRow = 1.0 / job.candX;

    for (std::int32_t q = 0; q < job.groups; ++q) {
        const std::int32_t* matches = job.matchIdx + std::ptrdiff_t{q} * side;
        std::ptrdiff_t sourceAt[side], sumsAt[side], weightAt[side];
        for (int j = 0; j < side; ++j) {
            // Exact: half a candidate of room is far more than the quotient's rounding.
            const auto y = static_cast<std::int32_t>((matches[j] + 0.5) * perRow);
            const std::int32_t x = matches[j] - y * job.candX;
            sourceAt[j] = y * job.sourceStride + x;
            sumsAt[j] = y * job.sumsStride + x;
            weightAt[j] = y * job.weightsStride + x;
        }

        for (int j = 0; j < side; ++j) {
            Row x[side];
            load8(job.source + sourceAt[j], job.sourceStride, x);
            forward8(x);
            transpose8(x);
            forward8(x);
            store8(x, cube + j * blockSize, side);
        }

        Survivors found;
        shrinkGroup<withBoost>(cube, thresholds, found);
        const float weight = 1.0f / static_cast<float>(found.kept + 1);
        float factor = weight * (1.0f / (side * blockSize));
        if constexpr (withBoost) {
            const float all = found.sumAll * (1.0f / cubeEnlargement);
            const float kept = found.sumKept * (1.0f / cubeEnlargement);
            float gain = (all / (kept + 0.001f) - 1.0f) * job.boost + 1.0f;
            gain = gain < job.gainCap ? gain : job.gainCap;
            if (gain > 1.05f) {
                factor *= gain;
                // The mean keeps its size: what the gain adds to it is taken off each slice's.
                for (int j = 0; j < side; ++j)
                    cube[j * blockSize] += found.mean * (1.0f / gain - 1.0f);
            }
        }

        for (const std::ptrdiff_t at : weightAt)
            job.weights[at] += weight;
        if (found.kept == 0)
            continue;
        const auto add = found.highLanes
                             ? found.highRows ? &addSlices<side, side> : &addSlices<side / 2, side>
                         : found.highRows ? &addSlices<side, side / 2>
                                          : &addSlices<side / 2, side / 2>;
        add(job, sumsAt, factor);
    }
}

void filterGroups(const GroupFilterJob& job) {
    if (job.boost > 0.05f)
        filterGroupsWith<true>(job);
    else
        filterGroupsWith<false>(job);
}

void normaliseRow(const float* weights, std::ptrdiff_t weightsStride, const float* sums,
                  float floor, float* scratch, float* image, std::int32_t n) {
    for (std::int32_t x = 0; x < n + side - 1; ++x) {
        float sum = weights[x];
        for (int i = 1; i < side; ++i)
            sum += weights[x + i * weightsStride];
        scratch[x] = sum;
    }
    for (std::int32_t x = 0; x < n; ++x) {
        float weight = floor;
        for (int i = 0; i < side; ++i)
            weight += scratch[x + i];
        image[x] = (image[x] * floor + sums[x]) / weight;
    }
}

// Four-point DCT: rows of 16 values, one lane per candidate.
constexpr float d0 = 0.5f, d1 = 0.6532815f, d2 = 0.27059805f;

template <class T>
KT7_INLINE void forward4(T& x0, T& x1, T& x2, T& x3) {
    const T a = x0 + x3, b = x1 + x2, c = x0 - x3, d = x1 - x2;
    x0 = (a + b) * d0;
    x2 = (a - b) * d0;
    x1 = d1 * c + d2 * d;
    x3 = d2 * c - d1 * d;
}

template <class T>
KT7_INLINE void forward4x4(T (&x)[16]) {
    for (int r = 0; r < 16; r += 4)
        forward4(x[r], x[r + 1], x[r + 2], x[r + 3]);
    for (int c = 0; c < 4; ++c)
        forward4(x[c], x[c + 4], x[c + 8], x[c + 12]);
}

void dct4x4(float* block) {
    float x[16];
    for (int i = 0; i < 16; ++i)
        x[i] = block[i];
    forward4x4(x);
    for (int i = 0; i < 16; ++i)
        block[i] = x[i];
}

/// Features of one row of n candidates. Reads up to 7 floats behind the last sample of each row.
void featureRow(const float* means, std::ptrdiff_t meansStride, float dcScale, float* features,
                std::int32_t n) {
    for (std::int32_t at = 0; at < n; at += side) {
        Row x[16];
        for (int j = 0; j < 4; ++j)
            for (int i = 0; i < 4; ++i)
                load(means + 2 * j * meansStride + at + 2 * i, x[4 * j + i]);
        forward4x4(x);
        x[0] *= dcScale;
        // Eight candidates in the lanes become eight runs of 16 elements.
        Row low[side], high[side];
        for (int i = 0; i < side; ++i) {
            low[i] = x[i];
            high[i] = x[i + side];
        }
        transpose8(low);
        transpose8(high);
        const int lanes = n - at < side ? n - at : side;
        float* to = features + std::ptrdiff_t{at} * 16;
        if (lanes == side) {
            for (int i = 0; i < side; ++i) {
                store(low[i], to + 16 * i);
                store(high[i], to + 16 * i + side);
            }
        } else {
            for (int i = 0; i < lanes; ++i) {
                store(low[i], to + 16 * i);
                store(high[i], to + 16 * i + side);
            }
        }
    }
}

constexpr std::int32_t lanes = sizeof(Wide) / sizeof(float);

KT7_INLINE void countLanes(WideMask& numbers) {
    for (std::int32_t i = 0; i < lanes; ++i)
        numbers[i] = i;
}

/// Keeps, in each lane, the lesser of two keys and its number.
KT7_INLINE void keepLess(Wide& least, WideMask& where, const Wide& keys, const WideMask& numbers) {
    const WideMask better = keys < least;
    least = better ? keys : least;
    where = better ? numbers : where;
}

std::int32_t indexOfLeast(const float* keys, std::int32_t n) {
    // Two minima that don't wait for each other.
    WideMask here, where[2];
    countLanes(here);
    where[0] = here;
    where[1] = here + lanes;
    Wide least[2];
    load(keys, least[0]);
    load(keys + lanes, least[1]);
    for (std::int32_t i = 2 * lanes; i < n; i += 2 * lanes) {
        here += 2 * lanes;
        Wide next[2];
        load(keys + i, next[0]);
        load(keys + i + lanes, next[1]);
        keepLess(least[0], where[0], next[0], here);
        keepLess(least[1], where[1], next[1], here + lanes);
    }
    keepLess(least[0], where[0], least[1], where[1]);
#if defined(__AVX__)
    keepLess(least[0], where[0],
             __builtin_shufflevector(least[0], least[0], 4, 5, 6, 7, 0, 1, 2, 3),
             __builtin_shufflevector(where[0], where[0], 4, 5, 6, 7, 0, 1, 2, 3));
    keepLess(least[0], where[0],
             __builtin_shufflevector(least[0], least[0], 2, 3, 0, 1, 6, 7, 4, 5),
             __builtin_shufflevector(where[0], where[0], 2, 3, 0, 1, 6, 7, 4, 5));
#else
    keepLess(least[0], where[0], __builtin_shufflevector(least[0], least[0], 2, 3, 0, 1),
             __builtin_shufflevector(where[0], where[0], 2, 3, 0, 1));
#endif
    return least[0][1] < least[0][0] ? where[0][1] : where[0][0];
}

std::int32_t splitElement(const float* features, const std::int32_t* list, std::int32_t n,
                          std::int32_t rank, float* mean) {
    constexpr int parts = 16 / lanes;
    // Deviations from the first feature, so that one pass gives mean and variance.
    const float* const origin = features + std::ptrdiff_t{16} * list[0];
    Wide base[parts], sum[parts] = {}, squares[parts] = {};
    for (int p = 0; p < parts; ++p)
        load(origin + p * lanes, base[p]);
    for (std::int32_t i = 1; i < n; ++i) {
        const float* const feature = features + std::ptrdiff_t{16} * list[i];
        for (int p = 0; p < parts; ++p) {
            Wide d;
            load(feature + p * lanes, d);
            d -= base[p];
            sum[p] += d;
            squares[p] += d * d;
        }
    }
    const float share = 1.0f / static_cast<float>(n);
    // Variances are not negative, so they compare like their bits; the lowest four make room for a
    // number that tells equal ones apart. Counting how many are larger needs no jump.
    float sums[16];
    WideMask number;
    countLanes(number);
    WideMask keys[parts], larger[parts] = {};
    std::int32_t allKeys[16];
    for (int p = 0; p < parts; ++p) {
        __builtin_memcpy(sums + p * lanes, &sum[p], sizeof(Wide));
        Wide variance = squares[p] - sum[p] * sum[p] * share;
        variance = variance > 0.0f ? variance : Wide{};
        __builtin_memcpy(&keys[p], &variance, sizeof(Wide));
        keys[p] = (keys[p] & ~15) | (15 - p * lanes - number);
        __builtin_memcpy(allKeys + p * lanes, &keys[p], sizeof(WideMask));
    }
    for (int j = 0; j < 16; ++j)
        for (int p = 0; p < parts; ++p)
            larger[p] -= allKeys[j] > keys[p];
    WideMask chosen = {};
    for (int p = 0; p < parts; ++p)
        chosen |= larger[p] == rank ? number + p * lanes : WideMask{};
    std::int32_t element = 0;
    for (int i = 0; i < lanes; ++i)
        element |= chosen[i];
    *mean = origin[element] + sums[element] * share;
    return element;
}

} // namespace

const GroupKernels KT7_NAME(groupKernels){
    &dct8x8Forward, &dct8x8Inverse, &cubeForward, &cubeInverse,  &dct4x4,
    &filterGroups,  &normaliseRow,  &featureRow,  &indexOfLeast, &splitElement};

} // namespace kt7
