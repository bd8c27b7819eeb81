#include "qxenhlib/ImBMFilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <vector>

#include "qxutils/DCT.h"
#include "tests/support/targets.h"

namespace kt7 {
namespace {

struct Scene {
    Scene(std::int32_t width, std::int32_t height, std::int32_t step, unsigned seed)
        : noisy(width, height), random(seed) {
        result.setGeometry(width, height, step);
        std::vector<std::int32_t> candidates(static_cast<std::size_t>(result.candX * result.candY));
        std::iota(candidates.begin(), candidates.end(), 0);
        for (std::int32_t q = 0; q < result.queryX * result.queryY; ++q) {
            std::ranges::shuffle(candidates, random);
            std::copy_n(candidates.begin(), 8, result.matchIdx.get() + std::ptrdiff_t{q} * 8);
        }
        std::normal_distribution<float> noise(0.0f, 0.02f);
        for (std::int32_t y = 0; y < height; ++y)
            for (std::int32_t x = 0; x < width; ++x)
                *noisy.at(x, y) =
                    0.4f + 0.2f * std::sin(static_cast<float>(x + 2 * y) * 0.3f) + noise(random);
        // Different for either axis, so that a transposed table shows.
        for (int i = 0; i < 64; ++i)
            thresholds.push_back(0.8f + 0.02f * static_cast<float>(i / 8) -
                                 0.01f * static_cast<float>(i % 8));
    }

    GIMG<float> noisy;
    std::mt19937 random;
    ImBMResult result;
    std::vector<float> thresholds;
};

// The method step by step, with every pixel's weight added up on its own, in double precision.
std::vector<double> filterByDefinition(const Scene& scene, double scale, double boost) {
    const ImBMResult& r = scene.result;
    const auto pixels = static_cast<std::size_t>(r.width * r.height);
    std::vector<double> sums(pixels), weights(pixels, 1e-7), source;
    for (std::int32_t y = 0; y < r.height; ++y)
        for (const float v : scene.noisy.row(y))
            source.push_back(v);
    for (std::size_t i = 0; i < pixels; ++i)
        sums[i] = source[i] * 1e-7;
    for (std::int32_t q = 0; q < r.queryX * r.queryY; ++q) {
        const auto pixelOf = [&](std::int32_t i) {
            const std::int32_t c = r.matchIdx[static_cast<std::size_t>(q * 8 + i / 64)];
            return static_cast<std::size_t>((c / r.candX + i / 8 % 8) * r.width + c % r.candX +
                                            i % 8);
        };
        float cube[512];
        for (std::int32_t i = 0; i < 512; ++i)
            cube[i] = static_cast<float>(source[pixelOf(i)]);
        nDCT8x8x8(cube);
        double kept = 0, sumAll = 0, sumKept = 0;
        for (std::size_t i = 0; i < 512; ++i) {
            sumAll += double{cube[i]};
            if (double{std::abs(cube[i])} < double{scene.thresholds[i % 64]} * scale) {
                cube[i] = 0;
            } else {
                kept += 1;
                sumKept += double{cube[i]};
            }
        }
        const double gain = std::min(1.25, (sumAll / (sumKept + 0.001) - 1) * boost + 1);
        if (boost > 0.05 && gain > 1.05)
            for (int i = 1; i < 512; ++i)
                cube[i] = static_cast<float>(double{cube[i]} * gain);
        nIDCT8x8x8(cube);
        for (std::int32_t i = 0; i < 512; ++i) {
            sums[pixelOf(i)] += double{cube[i]} / (kept + 1);
            weights[pixelOf(i)] += 1 / (kept + 1);
        }
    }
    for (std::size_t i = 0; i < pixels; ++i)
        sums[i] /= weights[i];
    return sums;
}

double worstDifference(GIMG<float>& image, const std::vector<double>& expected) {
    double worst = 0;
    for (std::int32_t y = 0; y < image.height; ++y)
        for (std::int32_t x = 0; x < image.width; ++x)
            worst =
                std::max(worst, std::abs(double{*image.at(x, y)} -
                                         expected[static_cast<std::size_t>(y * image.width + x)]));
    return worst;
}

void copyInto(GIMG<float>& to, const GIMG<float>& from) {
    for (std::int32_t y = 0; y < to.height; ++y)
        std::ranges::copy(from.row(y), to.row(y).begin());
}

class GroupFilterTargets : public test::OnTarget {};

KT7_ON_EVERY_TARGET(GroupFilterTargets);

TEST_P(GroupFilterTargets, FollowTheDefinition) {
    struct Case {
        std::int32_t width, height, step;
        float scale, boost;
        int rows = 8, columns = 8; // frequencies beyond these are dropped
    };
    for (const Case& c :
         {Case{47, 40, 3, 0.06f, 0.0f}, Case{47, 40, 3, 0.06f, 0.05f}, Case{40, 33, 2, 0.06f, 0.3f},
          Case{33, 47, 3, 0.1f, 1.0f}, Case{16, 9, 3, 0.02f, 0.3f}, Case{40, 33, 4, 0.0f, 0.0f},
          Case{40, 33, 4, 50.0f, 0.0f}, Case{40, 33, 4, 0.06f, 0.0f, 4, 8},
          Case{40, 33, 4, 0.06f, 1.0f, 8, 4}, Case{40, 33, 4, 0.06f, 1.0f, 4, 4}}) {
        Scene scene(c.width, c.height, c.step, 11);
        for (int i = 0; i < 64; ++i)
            if (i / 8 >= c.rows || i % 8 >= c.columns)
                scene.thresholds[static_cast<std::size_t>(i)] = 1e3f;
        const std::vector<double> expected =
            filterByDefinition(scene, double{c.scale}, double{c.boost});
        ImBMFilter filter;
        ASSERT_EQ(filter.init(scene.result, scene.thresholds.data(), c.boost), 1);
        GIMG<float> image(c.width, c.height);
        copyInto(image, scene.noisy);
        EXPECT_EQ(filter.filterImage(image, scene.result, c.scale), 0);
        EXPECT_LT(worstDifference(image, expected), 2e-6)
            << c.width << "x" << c.height << " scale " << c.scale << " boost " << c.boost;
    }
}

TEST(GroupFilter, BoostChangesTheResult) {
    const Scene scene(33, 47, 3, 11);
    const std::vector<double> plain = filterByDefinition(scene, 0.1, 0.05),
                              boosted = filterByDefinition(scene, 0.1, 1.0);
    double difference = 0;
    for (std::size_t i = 0; i < plain.size(); ++i)
        difference = std::max(difference, std::abs(plain[i] - boosted[i]));
    EXPECT_GT(difference, 1e-4); // so the comparison above has tried the gain
}

TEST(GroupFilter, LeavesPixelsWithoutABlock) {
    Scene scene(24, 20, 3, 5);
    for (std::int32_t i = 0; i < scene.result.queryX * scene.result.queryY * 8; ++i)
        scene.result.matchIdx[static_cast<std::size_t>(i)] = i % 8; // row 0, corners x = 0..7
    ImBMFilter filter;
    ASSERT_EQ(filter.init(scene.result, scene.thresholds.data(), 0.0f), 1);
    GIMG<float> image(24, 20);
    copyInto(image, scene.noisy);
    EXPECT_EQ(filter.filterImage(image, scene.result, 50.0f), 0);
    for (std::int32_t y = 0; y < 20; ++y)
        for (std::int32_t x = 0; x < 24; ++x) {
            const float before = *scene.noisy.at(x, y);
            const bool covered = y < 8 && x < 15; // by groups of which nothing is left
            EXPECT_NEAR(*image.at(x, y), covered ? 0.0f : before, 1e-6f) << x << "," << y;
        }
}

TEST(GroupFilter, RefusesOtherSizes) {
    Scene scene(24, 20, 3, 5);
    ImBMFilter filter;
    ASSERT_EQ(filter.init(scene.result, scene.thresholds.data(), 0.0f), 1);
    for (const PrimSize size : {PrimSize{23, 20}, PrimSize{24, 21}}) {
        GIMG<float> image(size.width, size.height);
        for (std::int32_t y = 0; y < size.height; ++y)
            std::ranges::fill(image.row(y), 0.5f);
        EXPECT_EQ(filter.filterImage(image, scene.result, 1.0f), 4);
        for (std::int32_t y = 0; y < size.height; ++y)
            for (const float v : image.row(y))
                ASSERT_EQ(v, 0.5f);
    }
    scene.result.numMatches = 4;
    EXPECT_EQ(filter.init(scene.result, scene.thresholds.data(), 0.0f), 0);
    scene.result.numMatches = 8;
    scene.result.blockSize = 4;
    EXPECT_EQ(filter.init(scene.result, scene.thresholds.data(), 0.0f), 0);
}

} // namespace
} // namespace kt7
