#include "pmdll/src/NoiseBandEstimator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <vector>

#include "tests/support/targets.h"

namespace kt7 {
namespace {

using Plane = GIMG<float>;

template <class Value>
void fill(Plane& plane, Value&& value) {
    for (std::int32_t y = 0; y < plane.height; ++y)
        for (std::int32_t x = 0; x < plane.width; ++x)
            *plane.at(x, y) = value(x, y);
}

/// Ramp from `from` to `to` with noise of deviation sigma(intensity).
template <class Sigma>
void fillNoisyRamp(Plane& plane, double from, double to, Sigma&& sigma) {
    std::mt19937 random(11);
    std::normal_distribution<double> normal;
    fill(plane, [&](std::int32_t x, std::int32_t) {
        const double p = from + (to - from) * x / plane.width;
        return static_cast<float>(p + sigma(p) * normal(random));
    });
}

struct Reference {
    double noise, root, count;
};

/// The measurement pixel by pixel, in double precision behind the gradient.
Reference measured(const Plane& guide, const Plane& plane, double fraction, float low, float high) {
    const auto at = [](const Plane& p, std::int32_t x, std::int32_t y) { return *p.at(x, y); };
    const auto median = [&](std::int32_t x, std::int32_t y) {
        std::array<float, 9> v;
        for (int i = 0; i < 9; ++i)
            v[static_cast<std::size_t>(i)] = at(guide, x + i % 3 - 1, y + i / 3 - 1);
        std::ranges::nth_element(v, v.begin() + 4);
        return double{v[4]};
    };
    std::vector<int> gradients;
    for (std::int32_t y = 2; y < guide.height - 2; ++y)
        for (std::int32_t x = 2; x < guide.width - 2; ++x) {
            double gx = 0, gy = 0;
            for (int k = -1; k <= 1; ++k) {
                gx += (2 - k * k) * (median(x + 1, y + k) - median(x - 1, y + k));
                gy += (2 - k * k) * (median(x + k, y + 1) - median(x + k, y - 1));
            }
            gradients.push_back(
                std::min(255, static_cast<int>(76.5 * (std::abs(gx) + std::abs(gy)))));
        }
    std::vector<int> sorted = gradients;
    std::ranges::sort(sorted);
    const auto wanted = static_cast<std::ptrdiff_t>(static_cast<double>(sorted.size()) * fraction);
    const int limit = std::max(1, wanted < 1 ? 0 : sorted[static_cast<std::size_t>(wanted - 1)]);
    Reference sum{};
    std::size_t i = 0;
    for (std::int32_t y = 2; y < guide.height - 2; ++y)
        for (std::int32_t x = 2; x < guide.width - 2; ++x) {
            const float p = at(guide, x, y);
            if (gradients[i++] > limit || p < low || p > high)
                continue;
            double response = 0;
            for (int j = -1; j <= 1; ++j)
                for (int k = -1; k <= 1; ++k)
                    response += (3 * j * j - 2) * (3 * k * k - 2) * double{at(plane, x + k, y + j)};
            sum.noise += std::abs(response);
            sum.root += std::sqrt(double{p});
            sum.count += 1;
        }
    return {sum.noise / sum.count / 4.76, sum.root / sum.count, sum.count};
}

class EstimatorTargets : public test::OnTarget {};

KT7_ON_EVERY_TARGET(EstimatorTargets);

TEST_P(EstimatorTargets, AgreeWithASlowReference) {
    Plane guide(53, 41), second(53, 41), third(53, 41);
    fillNoisyRamp(guide, 0.05, 0.95, [](double p) { return 0.05 * p; });
    fillNoisyRamp(second, -0.3, 0.3, [](double) { return 0.02; });
    fillNoisyRamp(third, 0.2, 0.1, [](double) { return 0.3; });
    const Plane* const planes[3] = {&guide, &second, &third};
    for (const float fraction : {0.1f, 0.15f, 0.9f}) {
        NoiseBandEstimator one(fraction, 0.2f, 0.8f), three(fraction, 0.2f, 0.8f);
        const Reference expected = measured(guide, guide, double{fraction}, 0.2f, 0.8f);
        ASSERT_GT(expected.count, 20);
        EXPECT_NEAR(one.estimate(guide), expected.noise, 1e-5 * expected.noise);
        EXPECT_NEAR(one.meanRoot, expected.root, 1e-5);
        EXPECT_EQ(double{one.sampleCount}, expected.count);
        float results[3];
        three.estimateThree(planes, results);
        EXPECT_EQ(results[0], one.estimate(guide));
        EXPECT_EQ(three.sampleCount, one.sampleCount);
        for (int c = 1; c < 3; ++c) {
            const double noise = measured(guide, *planes[c], double{fraction}, 0.2f, 0.8f).noise;
            EXPECT_NEAR(results[c], noise, 1e-5 * noise) << c;
        }
    }
}

TEST(NoiseBandEstimator, FlatPlanesUseEveryPixelInBand) {
    Plane plane(40, 30);
    for (const float level : {0.15f, 0.5f, 0.86f}) {
        fill(plane, [=](std::int32_t, std::int32_t) { return level; });
        NoiseBandEstimator estimator(0.1f, 0.15f, 0.85f);
        EXPECT_EQ(estimator.estimate(plane), 0.0f);
        EXPECT_EQ(estimator.sampleCount, level < 0.85f ? 36.0f * 26.0f : 0.0f);
    }
}

// A long sum of small responses keeps its digits.
TEST(NoiseBandEstimator, LargePlanesLoseNoPrecision) {
    Plane plane(2000, 1500);
    fill(plane,
         [](std::int32_t x, std::int32_t y) { return 0.5f + ((x ^ y) & 1 ? 1.f : -1.f) / 4096; });
    NoiseBandEstimator estimator(1.0f, 0.0f, 1.0f);
    EXPECT_NEAR(estimator.estimate(plane), 16.0 / 4096 / 4.76, 1e-4 * 16 / 4096 / 4.76);
    EXPECT_EQ(estimator.sampleCount, 1996.0f * 1496.0f);
}

TEST(EstimateLevels, FollowsTheRootOfTheIntensity) {
    struct Case {
        double black, slope;
    };
    for (const Case& c : {Case{0.01, 0.0}, Case{0.004, 0.02}, Case{0.03, -0.02}}) {
        Plane plane(600, 400);
        fillNoisyRamp(plane, 0.05, 0.95,
                      [&](double p) { return c.black + c.slope * std::sqrt(p); });
        float noise[3];
        estimateLevels(plane, noise);
        EXPECT_NEAR(noise[0], c.black, 0.003) << c.slope;
        EXPECT_NEAR(noise[1], c.black + c.slope * std::sqrt(0.5), 0.002) << c.slope;
        EXPECT_NEAR(noise[2], c.black + c.slope, 0.003) << c.slope;
    }
}

TEST(EstimateLevels, HoldsTheEndsNearTheMiddle) {
    Plane plane(600, 400);
    float noise[3];
    // Steeper than the limits allow at both ends.
    fillNoisyRamp(plane, 0.05, 0.95, [](double p) { return p < 0.5 ? 0.002 : 0.03; });
    estimateLevels(plane, noise);
    EXPECT_FLOAT_EQ(noise[0], 0.1f * noise[1]);
    EXPECT_LE(noise[2], 8.0f * noise[1]);
    // Without dark or bright pixels the middle stands for all.
    fillNoisyRamp(plane, 0.45, 0.55, [](double) { return 0.01; });
    estimateLevels(plane, noise);
    EXPECT_EQ(noise[0], noise[1]);
    EXPECT_EQ(noise[2], noise[1]);
    EXPECT_NEAR(noise[1], 0.01, 0.001);
}

TEST(EstimateLevels, FallsBackWhenTheMiddleIsEmpty) {
    Plane plane(200, 200);
    float noise[3];
    fillNoisyRamp(plane, 0.15, 0.2, [](double) { return 0.01; });
    estimateLevels(plane, noise);
    EXPECT_NEAR(noise[0], 0.01, 0.001);
    EXPECT_TRUE(noise[1] == noise[0] && noise[2] == noise[0]);
    fillNoisyRamp(plane, 0.01, 0.02, [](double) { return 0.003; });
    estimateLevels(plane, noise);
    for (const float n : noise)
        EXPECT_EQ(n, 0.005f);
}

} // namespace
} // namespace kt7
