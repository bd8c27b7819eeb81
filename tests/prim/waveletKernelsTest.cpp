// Every CPU target's wavelet rows against double precision, and the rules of the gains.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "prim/kernels/KernelTable.h"
#include "prim/kernels/select.h"

namespace kt7 {
namespace {

class WaveletKernelTargets : public testing::TestWithParam<CpuTarget> {
  protected:
    void SetUp() override {
        if (GetParam() > bestCpuTarget())
            GTEST_SKIP() << "not on this CPU";
        selectKernels(GetParam());
    }
    void TearDown() override { selectKernels(bestCpuTarget()); }

    std::mt19937 random{7};
    std::vector<float> noise(std::int32_t n) {
        std::normal_distribution<float> normal;
        std::vector<float> row(static_cast<std::size_t>(n));
        for (float& v : row)
            v = normal(random);
        return row;
    }
};

INSTANTIATE_TEST_SUITE_P(All, WaveletKernelTargets,
                         testing::Values(CpuTarget::generic, CpuTarget::avx2, CpuTarget::avx512));

TEST_P(WaveletKernelTargets, WeightsTenRowsAndKeepsBehindTheEnd) {
    for (std::int32_t n : {1, 3, 7, 8, 15, 16, 17, 31, 33, 100})
        for (std::int32_t sums : {1, 2, 4}) {
            const std::vector<float> in = noise(n + 40), weights = noise(10 * sums);
            std::vector<float> out(static_cast<std::size_t>((n + 1) * sums), -99.0f);
            const float* src[10];
            for (std::int32_t i = 0; i < 10; ++i)
                src[i] = in.data() + i * 4 + i % 3; // rows that overlap each other, unaligned
            float* dst[4];
            for (std::int32_t k = 0; k < sums; ++k)
                dst[k] = out.data() + k * (n + 1);
            waveletKernels->weightedSums(src, weights.data(), dst, sums, n);
            for (std::int32_t k = 0; k < sums; ++k) {
                for (std::int32_t x = 0; x < n; ++x) {
                    double sum = 0, size = 0;
                    for (std::int32_t i = 0; i < 10; ++i) {
                        const double term = double{weights[static_cast<std::size_t>(10 * k + i)]} *
                                            double{src[i][x]};
                        sum += term;
                        size += std::abs(term);
                    }
                    ASSERT_NEAR(dst[k][x], sum, 3e-7 * size) << n << ' ' << sums << ' ' << x;
                }
                ASSERT_EQ(dst[k][n], -99.0f);
            }
        }
}

TEST_P(WaveletKernelTargets, SplitsAndJoinsPairs) {
    for (std::int32_t n : {1, 7, 16, 33}) {
        const std::vector<float> row = noise(2 * n);
        std::vector<float> even(row.size() / 2), odd(even), joined(row.size());
        waveletKernels->splitPairs(row.data(), even.data(), odd.data(), n);
        EXPECT_EQ(odd[0], row[1]);
        EXPECT_EQ(even.back(), row[row.size() - 2]);
        waveletKernels->joinPairs(even.data(), odd.data(), joined.data(), n);
        EXPECT_EQ(joined, row);
    }
}

// One complex coefficient per place: trees (0,0) and (1,1) carry the real part of the first
// orientation when they are equal, the imaginary part of the second when they are opposite.
TEST_P(WaveletKernelTargets, GainsFollowTheMagnitude) {
    constexpr float threshold = 2.0f, slope = 1.0f / (2.5f * 2.0f + 1e-15f), cap = 1.3f;
    struct Case {
        float magnitude, gain;
    };
    for (const Case& c : {Case{0.0f, 0.0f}, Case{1.9f, 0.0f}, Case{2.0f, 0.0f}, Case{4.5f, 0.5f},
                          Case{7.0f, 1.0f}, Case{8.0f, 1.2f}, Case{9.0f, 1.3f}, Case{1e6f, 1.3f}})
        for (const float sign : {1.0f, -1.0f}) {
            const float part = c.magnitude * std::sqrt(0.5f);
            const std::vector<float> t00(37, part), zero(37, 0.0f), t11(37, sign * part);
            const float* const trees[4] = {t00.data(), zero.data(), zero.data(), t11.data()};
            std::vector<float> gain0(37), gain1(37), own(37), guided(37), both(37);
            waveletKernels->gainRows(trees, threshold, slope, gain0.data(), gain1.data(), 37);
            waveletKernels->shrinkByGuide(trees, gain0.data(), gain1.data(), cap, guided.data(),
                                          37);
            waveletKernels->shrinkByOwn(trees, threshold, slope, cap, own.data(), 37);
            // Hardly any gain of its own: the guide's is the larger.
            waveletKernels->shrinkByBoth(trees, 1e9f, slope, gain0.data(), gain1.data(), cap,
                                         both.data(), 37);
            const float expected = c.gain * t11[0];
            for (const std::vector<float>* out : {&guided, &own, &both})
                for (const float v : *out)
                    ASSERT_NEAR(v, expected, 2e-6f * std::abs(t11[0]) + 1e-6f) << c.magnitude;
            const std::vector<float>& loud = sign > 0 ? gain0 : gain1;
            EXPECT_NEAR(loud[5], (c.magnitude - threshold) * slope, 1e-6f * c.magnitude + 1e-6f);
        }
}

} // namespace
} // namespace kt7
