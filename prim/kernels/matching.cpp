// Features of blocks, and the inner loops of the forest that they are matched in. Built with
// contraction.
#include "prim/kernels/KernelTable.h"
#include "prim/kernels/RowVector.h"

namespace kt7 {
namespace {

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

/// Features of one row of n candidates. Reads up to 7 floats behind the last sample of each row.
void featuresOf(const float* means, std::ptrdiff_t meansStride, float dcScale, float* features,
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

std::int32_t leastOf(const float* keys, std::int32_t n) {
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

std::int32_t split(const float* features, const std::int32_t* list, std::int32_t n,
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

const MatchingKernels KT7_NAME(matchingKernels){&featuresOf, &leastOf, &split};

} // namespace kt7
