#include "prim/randGauss.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace kt7 {
namespace {

std::vector<std::int16_t> noise(PrimSize size, std::int32_t stepSamples, std::int16_t level,
                                std::int16_t mean, std::int16_t stdDev, std::uint32_t seed) {
    std::vector<std::int16_t> plane(static_cast<std::size_t>(stepSamples * size.height), level);
    EXPECT_EQ(primAddRandGauss16sC1I(plane.data(), stepSamples * 2, size, mean, stdDev, &seed), 0);
    return plane;
}

// Moments, tails and independence of neighbours, each within about four of its own deviations.
TEST(RandGauss, IsNormalAndWhite) {
    for (const std::uint32_t seed : {0u, 1u, 0xffffffffu, 77u}) {
        constexpr std::int32_t width = 1001, height = 1000;
        const auto v = noise({width, height}, width, 0, 0, 1000, seed);
        double sum = 0, square = 0, cube = 0, fourth = 0, lag[3] = {}, within = 0;
        for (std::size_t i = 0; i < v.size(); ++i) {
            const double d = v[i] / 1000.0;
            sum += d;
            square += d * d;
            cube += d * d * d;
            fourth += d * d * d * d;
            within += std::abs(d) < 1.0;
            if (i + width < v.size()) {
                lag[0] += d * v[i + 1] / 1000.0;
                lag[1] += d * v[i + 2] / 1000.0;
                lag[2] += d * v[i + width] / 1000.0;
            }
        }
        const auto n = static_cast<double>(v.size());
        EXPECT_NEAR(sum / n, 0.0, 0.004) << seed;
        EXPECT_NEAR(square / n, 1.0, 0.007) << seed;
        EXPECT_NEAR(cube / n, 0.0, 0.016) << seed;
        EXPECT_NEAR(fourth / n, 3.0, 0.04) << seed;
        EXPECT_NEAR(within / n, 0.6827, 0.003) << seed;
        for (const double l : lag)
            EXPECT_NEAR(l / n, 0.0, 0.004) << seed;
    }
}

TEST(RandGauss, PairsRunOnAcrossRowEnds) {
    const auto flat = noise({21, 1}, 21, 0, 0, 500, 9);
    const auto rows = noise({7, 3}, 10, 0, 0, 500, 9);
    for (std::size_t i = 0; i < 21; ++i)
        EXPECT_EQ(rows[i / 7 * 10 + i % 7], flat[i]) << i;
    EXPECT_EQ(rows[8], 0) << "behind the row";
}

TEST(RandGauss, MeanShiftsAndSumsSaturate) {
    const auto shifted = noise({100, 1}, 100, 20000, -30000, 0, 3);
    EXPECT_EQ(shifted, std::vector<std::int16_t>(100, -10000));
    std::size_t top = 0;
    for (const std::int16_t s : noise({1000, 1}, 1000, 32000, 0, 32767, 3)) {
        EXPECT_TRUE(s <= 32767 && s >= -32768);
        top += s == 32767;
    }
    EXPECT_NEAR(static_cast<double>(top), 490, 80);
}

} // namespace
} // namespace kt7
