#include "prim/kernels/KernelTable.h"

namespace kt7 {
namespace {

constexpr std::int32_t taps = 10;
constexpr float rootHalf = 0.70710677f;

// The weights stay in registers or come from the first cache level; what counts is that all sums
// are formed from one read of the ten rows.
template <std::int32_t sums>
void weighRows(const float* const* src, const float* weights, float* const* dst, std::int32_t n) {
    const float *const s0 = src[0], *const s1 = src[1], *const s2 = src[2], *const s3 = src[3],
                       *const s4 = src[4], *const s5 = src[5], *const s6 = src[6],
                       *const s7 = src[7], *const s8 = src[8], *const s9 = src[9];
    float* out[sums];
    for (std::int32_t k = 0; k < sums; ++k)
        out[k] = dst[k];
#pragma GCC ivdep
    for (std::int32_t x = 0; x < n; ++x) {
        const float v[taps] = {s0[x], s1[x], s2[x], s3[x], s4[x],
                               s5[x], s6[x], s7[x], s8[x], s9[x]};
#pragma GCC unroll 4
        for (std::int32_t k = 0; k < sums; ++k) {
            const float* const w = weights + taps * k;
            const float a = (w[0] * v[0] + w[1] * v[1]) + (w[2] * v[2] + w[3] * v[3]);
            const float b = (w[4] * v[4] + w[5] * v[5]) + (w[6] * v[6] + w[7] * v[7]);
            out[k][x] = (a + b) + (w[8] * v[8] + w[9] * v[9]);
        }
    }
}

void weigh(const float* const* src, const float* weights, float* const* dst, std::int32_t sums,
           std::int32_t n) {
    if (sums == 4)
        weighRows<4>(src, weights, dst, n);
    else if (sums == 2)
        weighRows<2>(src, weights, dst, n);
    else
        weighRows<1>(src, weights, dst, n);
}

void split(const float* __restrict row, float* __restrict even, float* __restrict odd,
           std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x) {
        even[x] = row[2 * x];
        odd[x] = row[2 * x + 1];
    }
}

void join(const float* __restrict even, const float* __restrict odd, float* __restrict row,
          std::int32_t n) {
    for (std::int32_t x = 0; x < n; ++x) {
        row[2 * x] = even[x];
        row[2 * x + 1] = odd[x];
    }
}

struct GainPair {
    float first, second;
};

// Unclamped gains of the two orientations of one kind at one place, from its four trees.
inline GainPair gainsOf(float t00, float t01, float t10, float t11, float threshold, float slope) {
    const float re0 = (t00 + t11) * rootHalf, im0 = (t01 - t10) * rootHalf;
    const float re1 = (t01 + t10) * rootHalf, im1 = (t00 - t11) * rootHalf;
    return {(__builtin_sqrtf(re0 * re0 + im0 * im0) - threshold) * slope,
            (__builtin_sqrtf(re1 * re1 + im1 * im1) - threshold) * slope};
}

// Tree (1, 1) of a pair of complex coefficients after their gains.
inline float restored(float t00, float t11, float gain0, float gain1, float cap) {
    gain0 = gain0 < 0.0f ? 0.0f : gain0;
    gain0 = gain0 > cap ? cap : gain0;
    gain1 = gain1 < 0.0f ? 0.0f : gain1;
    gain1 = gain1 > cap ? cap : gain1;
    const float re0 = (t00 + t11) * rootHalf * gain0;
    const float im1 = (t00 - t11) * rootHalf * gain1;
    return (re0 - im1) * rootHalf;
}

void gains(const float* const* trees, float threshold, float slope, float* __restrict gain0,
           float* __restrict gain1, std::int32_t n) {
    const float *const t00 = trees[0], *const t01 = trees[1], *const t10 = trees[2],
                       *const t11 = trees[3];
    for (std::int32_t x = 0; x < n; ++x) {
        const GainPair g = gainsOf(t00[x], t01[x], t10[x], t11[x], threshold, slope);
        gain0[x] = g.first;
        gain1[x] = g.second;
    }
}

void byGuide(const float* const* trees, const float* gain0, const float* gain1, float cap,
             float* __restrict dst, std::int32_t n) {
    const float *const t00 = trees[0], *const t11 = trees[3];
    for (std::int32_t x = 0; x < n; ++x)
        dst[x] = restored(t00[x], t11[x], gain0[x], gain1[x], cap);
}

void byOwn(const float* const* trees, float threshold, float slope, float cap,
           float* __restrict dst, std::int32_t n) {
    const float *const t00 = trees[0], *const t01 = trees[1], *const t10 = trees[2],
                       *const t11 = trees[3];
    for (std::int32_t x = 0; x < n; ++x) {
        const GainPair g = gainsOf(t00[x], t01[x], t10[x], t11[x], threshold, slope);
        dst[x] = restored(t00[x], t11[x], g.first, g.second, cap);
    }
}

void byBoth(const float* const* trees, float threshold, float slope, const float* gain0,
            const float* gain1, float cap, float* __restrict dst, std::int32_t n) {
    const float *const t00 = trees[0], *const t01 = trees[1], *const t10 = trees[2],
                       *const t11 = trees[3];
    for (std::int32_t x = 0; x < n; ++x) {
        const GainPair g = gainsOf(t00[x], t01[x], t10[x], t11[x], threshold, slope);
        dst[x] = restored(t00[x], t11[x], gain0[x] > g.first ? gain0[x] : g.first,
                          gain1[x] > g.second ? gain1[x] : g.second, cap);
    }
}

} // namespace

const WaveletKernels KT7_NAME(waveletKernels){&weigh,   &split, &join,  &gains,
                                              &byGuide, &byOwn, &byBoth};

} // namespace kt7
