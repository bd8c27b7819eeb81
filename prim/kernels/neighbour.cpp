#include "prim/kernels/KernelTable.h"

namespace kt7 {
namespace {

void box2x2(const float* row0, const float* row1, float* __restrict dst, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x)
        dst[x] = ((row0[x] + row0[x + 1]) + (row1[x] + row1[x + 1])) * 0.25f;
}

void gauss3x3(const float* up, const float* mid, const float* down, float* __restrict dst,
              std::int32_t n) {
    const auto column = [=](std::int32_t x) { return (up[x] + down[x]) + 2.0f * mid[x]; };
    for (std::int32_t x = 0; x < n; ++x)
        dst[x] = ((column(x - 1) + column(x + 1)) + 2.0f * column(x)) * 0.0625f;
}

void sobelHoriz(const float* up, const float* down, float* __restrict dst, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x)
        dst[x] = ((down[x - 1] + 2.0f * down[x]) + down[x + 1]) -
                 ((up[x - 1] + 2.0f * up[x]) + up[x + 1]);
}

void sobelVert(const float* up, const float* mid, const float* down, float* __restrict dst,
               std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x)
        dst[x] = ((up[x - 1] - up[x + 1]) + 2.0f * (mid[x - 1] - mid[x + 1])) +
                 (down[x - 1] - down[x + 1]);
}

void taps3x3(const float* up, const float* mid, const float* down, const float* taps,
             float* __restrict dst, std::int32_t n) {
    const float a0 = taps[0], a1 = taps[1], a2 = taps[2];
    const float b0 = taps[3], b1 = taps[4], b2 = taps[5];
    const float c0 = taps[6], c1 = taps[7], c2 = taps[8];
    for (std::int32_t x = 0; x < n; ++x)
        dst[x] = ((a0 * up[x - 1] + a1 * up[x]) + a2 * up[x + 1]) +
                 ((b0 * mid[x - 1] + b1 * mid[x]) + b2 * mid[x + 1]) +
                 ((c0 * down[x - 1] + c1 * down[x]) + c2 * down[x + 1]);
}

// Each with a comparison of its own: one mask for both would cost a blend for each.
template <class T>
T least(T a, T b) {
    return a < b ? a : b;
}

template <class T>
T most(T a, T b) {
    return a > b ? a : b;
}

template <class T>
T medianOf3(T a, T b, T c) {
    return most(least(a, b), least(most(a, b), c));
}

// Of three sorted columns the median of nine is the median of the largest least, the middle middle
// and the least largest. Sorted columns are kept for a stretch of the row, as three outputs share
// each.
void median3x3(const float* up, const float* mid, const float* down, float* dst, std::int32_t n) {
    constexpr std::int32_t stretch = 256;
    float low[stretch + 2], middle[stretch + 2], high[stretch + 2];
    for (std::int32_t start = 0; start < n; start += stretch) {
        const std::int32_t count = n - start < stretch ? n - start : stretch;
        for (std::int32_t i = 0; i < count + 2; ++i) {
            const std::int32_t x = start + i - 1;
            const float a = least(up[x], mid[x]), b = most(up[x], mid[x]);
            const float c = down[x], inner = least(b, c);
            low[i] = least(a, c);
            middle[i] = most(a, inner);
            high[i] = most(b, c);
        }
        float* out = dst + start;
        for (std::int32_t i = 0; i < count; ++i)
            out[i] = medianOf3(most(most(low[i], low[i + 1]), low[i + 2]),
                               medianOf3(middle[i], middle[i + 1], middle[i + 2]),
                               least(least(high[i], high[i + 1]), high[i + 2]));
    }
}

void medianCross3(const std::int16_t* up, const std::int16_t* mid, const std::int16_t* down,
                  std::int16_t* __restrict dst, std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x) {
        const std::int16_t lowV = least(up[x], down[x]), highV = most(up[x], down[x]);
        const std::int16_t lowH = least(mid[x - 1], mid[x + 1]);
        const std::int16_t highH = most(mid[x - 1], mid[x + 1]);
        // The least and the largest of the four can't be the median of the five.
        dst[x] = medianOf3(most(lowV, lowH), least(highV, highH), mid[x]);
    }
}

void medianCross5(const std::int16_t* const* rows, std::int16_t* __restrict dst, std::int32_t n) {
    const std::int16_t *r0 = rows[0], *r1 = rows[1], *r2 = rows[2], *r3 = rows[3], *r4 = rows[4];
    for (std::int32_t x = 0; x < n; ++x) {
        // Three sorted triples, then as for nine pixels in a square.
        const std::int16_t v[3][3] = {
            {r0[x], r1[x], r2[x]}, {r3[x], r4[x], r2[x - 2]}, {r2[x - 1], r2[x + 1], r2[x + 2]}};
        std::int16_t low[3], middle[3], high[3];
        for (std::int32_t i = 0; i < 3; ++i) {
            const std::int16_t a = least(v[i][0], v[i][1]), b = most(v[i][0], v[i][1]);
            low[i] = least(a, v[i][2]);
            middle[i] = most(a, least(b, v[i][2]));
            high[i] = most(b, v[i][2]);
        }
        dst[x] = medianOf3(most(most(low[0], low[1]), low[2]),
                           medianOf3(middle[0], middle[1], middle[2]),
                           least(least(high[0], high[1]), high[2]));
    }
}

// Widest vectors of the target. Written out because a compiler keeps an array of running sums in
// memory from tap to tap, and these loops live on registers.
#if defined(__AVX512F__)
constexpr std::int32_t vectorBytes = 64;
#elif defined(__AVX__)
constexpr std::int32_t vectorBytes = 32;
#else
constexpr std::int32_t vectorBytes = 16;
#endif
typedef float Floats __attribute__((vector_size(vectorBytes)));
constexpr std::int32_t lanes = vectorBytes / 4;

Floats load(const float* src) {
    Floats v;
    __builtin_memcpy(&v, src, sizeof v);
    return v;
}

void store(Floats v, float* dst) {
    __builtin_memcpy(dst, &v, sizeof v);
}

void accumulate32f(const float* src, const float* taps, std::int32_t tapStep, std::int32_t count,
                   bool first, float* __restrict acc, std::int32_t n) {
    constexpr std::int32_t block = 4 * lanes;
    std::int32_t x = 0;
    for (; x + block <= n; x += block) {
        Floats s0{}, s1{}, s2{}, s3{};
        if (!first) {
            s0 = load(acc + x);
            s1 = load(acc + x + lanes);
            s2 = load(acc + x + 2 * lanes);
            s3 = load(acc + x + 3 * lanes);
        }
        for (std::int32_t i = 0; i < count; ++i) {
            const float tap = taps[std::ptrdiff_t{i} * tapStep];
            const float* from = src + x + i;
            s0 += tap * load(from);
            s1 += tap * load(from + lanes);
            s2 += tap * load(from + 2 * lanes);
            s3 += tap * load(from + 3 * lanes);
        }
        store(s0, acc + x);
        store(s1, acc + x + lanes);
        store(s2, acc + x + 2 * lanes);
        store(s3, acc + x + 3 * lanes);
    }
    for (; x < n; ++x) {
        float sum = first ? 0.0f : acc[x];
        for (std::int32_t i = 0; i < count; ++i)
            sum += taps[std::ptrdiff_t{i} * tapStep] * src[x + i];
        acc[x] = sum;
    }
}

} // namespace

const NeighbourKernels KT7_NAME(neighbourKernels){&box2x2,       &gauss3x3,     &sobelHoriz,
                                                  &sobelVert,    &taps3x3,      &median3x3,
                                                  &medianCross3, &medianCross5, &accumulate32f};

} // namespace kt7
