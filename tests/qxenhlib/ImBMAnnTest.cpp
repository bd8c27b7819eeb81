#include "qxenhlib/ImBMAnn.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <numbers>
#include <random>
#include <set>
#include <vector>

#include "prim/matching.h"
#include "tests/support/planes.h"
#include "tests/support/targets.h"

namespace kt7 {
namespace {

using Feature = std::vector<double>;

void fillTile(GIMG<float>& tile, float sigma) {
    std::mt19937 random(3);
    std::normal_distribution<float> noise(0.0f, 1.0f);
    for (std::int32_t y = 0; y < tile.height; ++y)
        for (std::int32_t x = 0; x < tile.width; ++x)
            *tile.at(x, y) = 0.4f + (3 * x + 2 * y > 2 * tile.width ? 0.2f : 0.0f) +
                             0.1f * std::sin(static_cast<float>(x * x + 30 * y) * 0.01f) +
                             sigma * noise(random);
}

// Half-resolution sample and its cosine transform, from the definition.
Feature featureOf(const GIMG<float>& tile, std::int32_t x0, std::int32_t y0, double dcScale) {
    const auto mean = [&](std::int32_t x, std::int32_t y) -> double {
        if (x == tile.width - 1 || y == tile.height - 1)
            return double{*tile.at(x, y)};
        return double{*tile.at(x, y) + *tile.at(x + 1, y) + *tile.at(x, y + 1) +
                      *tile.at(x + 1, y + 1)} *
               0.25;
    };
    Feature f;
    for (int v = 0; v < 4; ++v)
        for (int u = 0; u < 4; ++u) {
            double sum = 0;
            for (int j = 0; j < 4; ++j)
                for (int i = 0; i < 4; ++i)
                    sum += mean(x0 + 2 * i, y0 + 2 * j) *
                           std::cos((2 * i + 1) * u * std::numbers::pi / 8) *
                           std::cos((2 * j + 1) * v * std::numbers::pi / 8);
            f.push_back(sum * (u == 0 ? 0.5 : std::numbers::sqrt2 / 2) *
                        (v == 0 ? 0.5 : std::numbers::sqrt2 / 2));
        }
    f[0] *= dcScale;
    return f;
}

std::vector<Feature> featuresOf(const GIMG<float>& tile, const ImBMResult& result, double dcScale) {
    std::vector<Feature> features;
    for (std::int32_t y = 0; y < result.candY; ++y)
        for (std::int32_t x = 0; x < result.candX; ++x)
            features.push_back(featureOf(tile, x, y, dcScale));
    return features;
}

double squaredDistance(const Feature& a, const Feature& b) {
    double sum = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
        sum += (a[i] - b[i]) * (a[i] - b[i]);
    return sum;
}

class MatchingTargets : public test::OnTarget {};

KT7_ON_EVERY_TARGET(MatchingTargets);

// One object over several geometries, so that each also tests the change from the one before.
TEST_P(MatchingTargets, ListDistinctCandidatesBestFirstWithTheirDistances) {
    struct Case {
        std::int32_t width, height, step;
    };
    ImBMAnn matcher(2, 24, 0.5f);
    for (const Case& c : {Case{40, 33, 3}, Case{40, 33, 2}, Case{8, 20, 3}, Case{17, 9, 1},
                          Case{32, 32, 3}, Case{33, 40, 3}}) {
        GIMG<float> tile(c.width, c.height);
        fillTile(tile, 0.02f);
        ImBMResult result;
        result.setGeometry(c.width, c.height, c.step);
        matcher.proc(tile, result);
        const std::vector<Feature> features = featuresOf(tile, result, 0.5);
        for (std::int32_t q = 0; q < result.queryX * result.queryY; ++q) {
            const std::int32_t own =
                q / result.queryX * c.step * result.candX + q % result.queryX * c.step;
            const std::int32_t* matches = &result.matchIdx[static_cast<std::size_t>(q * 8)];
            const float* distances = &result.matchDist[static_cast<std::size_t>(q * 8)];
            ASSERT_EQ(std::set<std::int32_t>(matches, matches + 8).size(), 8u);
            EXPECT_EQ(matches[0], own);
            EXPECT_EQ(distances[0], 0.0f);
            EXPECT_TRUE(std::is_sorted(distances, distances + 8));
            for (int j = 0; j < 8; ++j) {
                ASSERT_GE(matches[j], 0);
                ASSERT_LT(matches[j], result.candX * result.candY);
                EXPECT_NEAR(distances[j],
                            squaredDistance(features[static_cast<std::size_t>(own)],
                                            features[static_cast<std::size_t>(matches[j])]),
                            2e-6);
            }
        }
    }
}

TEST(BlockMatching, FindsNearlyTheNearest) {
    GIMG<float> tile(72, 64);
    fillTile(tile, 0.01f);
    ImBMResult result;
    result.setGeometry(72, 64, 3);
    const std::vector<Feature> features = featuresOf(tile, result, 0.5);
    double exact = 0, anyEight = 0;
    for (std::int32_t qy = 0; qy < result.queryY; ++qy)
        for (std::int32_t qx = 0; qx < result.queryX; ++qx) {
            std::vector<double> all;
            for (const Feature& f : features)
                all.push_back(squaredDistance(
                    f, features[static_cast<std::size_t>(qy * 3 * result.candX + qx * 3)]));
            std::ranges::sort(all);
            for (std::size_t j = 0; j < 8; ++j) {
                exact += all[j];
                anyEight += all[(j + 1) * all.size() / 16];
            }
        }
    struct Case {
        std::int32_t trees, checks;
        double mostOverExact;
    };
    // More trees and checks come nearer; even the quick search is far from a random choice.
    for (const Case& c :
         {Case{1, 16, 1.5}, Case{2, 24, 1.12}, Case{4, 32, 1.08}, Case{4, 1000, 1.001}}) {
        ImBMAnn matcher(c.trees, c.checks, 0.5f);
        matcher.proc(tile, result);
        double found = 0;
        for (std::int32_t i = 0; i < result.queryX * result.queryY * 8; ++i)
            found += double{result.matchDist[static_cast<std::size_t>(i)]};
        RecordProperty("over_exact_" + std::to_string(c.checks), std::to_string(found / exact));
        EXPECT_GE(found, exact * 0.999);
        EXPECT_LT(found, exact * c.mostOverExact) << c.trees << " trees, " << c.checks << " checks";
        EXPECT_LT(found, anyEight);
    }
}

TEST(BlockMatching, FillsTheListsOfAFlatTileAndOfTheSmallestOne) {
    ImBMAnn matcher(2, 4, 0.5f);
    for (const PrimSize size : {PrimSize{32, 32}, PrimSize{8, 15}}) {
        GIMG<float> tile(size.width, size.height);
        for (std::int32_t y = 0; y < size.height; ++y)
            std::ranges::fill(tile.row(y), 0.5f);
        ImBMResult result;
        result.setGeometry(size.width, size.height, 3);
        matcher.proc(tile, result);
        for (std::int32_t q = 0; q < result.queryX * result.queryY; ++q) {
            const std::int32_t* matches = &result.matchIdx[static_cast<std::size_t>(q * 8)];
            EXPECT_EQ(std::set<std::int32_t>(matches, matches + 8).size(), 8u);
            for (int j = 0; j < 8; ++j)
                EXPECT_EQ(result.matchDist[static_cast<std::size_t>(q * 8 + j)], 0.0f);
        }
    }
}

// The choices that growing and searching leave to kernels, against plain ones.
TEST_P(MatchingTargets, SplitAlongAWideElementAndTakeTheNearestBranch) {
    std::mt19937 random(5);
    std::normal_distribution<float> noise(0.0f, 1.0f);
    std::vector<float> features(200 * 16);
    for (std::size_t i = 0; i < features.size(); ++i)
        features[i] = 3.0f + noise(random) * static_cast<float>(1 + i % 16 * 5 % 16);
    std::vector<std::int32_t> list(200);
    std::ranges::generate(list, [&, next = 0]() mutable { return next++ * 77 % 200; });
    for (const std::int32_t n : {2, 3, 8, 101}) {
        std::vector<double> means(16), variances(16);
        for (std::size_t e = 0; e < 16; ++e) {
            const auto value = [&](std::int32_t i) {
                return double{
                    features[static_cast<std::size_t>(list[static_cast<std::size_t>(i)]) * 16 + e]};
            };
            for (std::int32_t i = 0; i < n; ++i)
                means[e] += value(i) / n;
            for (std::int32_t i = 0; i < n; ++i)
                variances[e] += (value(i) - means[e]) * (value(i) - means[e]);
        }
        std::vector<double> sorted = variances;
        std::ranges::sort(sorted, std::greater<>());
        for (std::int32_t rank = 0; rank < 5; ++rank) {
            float mean = 0.0f;
            const auto element = static_cast<std::size_t>(
                splitElement(features.data(), list.data(), n, rank, &mean));
            ASSERT_LT(element, 16u);
            EXPECT_EQ(variances[element], sorted[static_cast<std::size_t>(rank)]);
            EXPECT_NEAR(double{mean}, means[element], 1e-4);
        }
    }
    for (std::size_t n = 1; n < 70; ++n) {
        std::vector<float> keys(96, std::numeric_limits<float>::infinity());
        std::generate_n(keys.begin(), n, [&] { return noise(random); });
        EXPECT_EQ(indexOfLeast(keys.data(), static_cast<std::int32_t>(n)),
                  std::ranges::min_element(keys) - keys.begin());
    }
}

// Several trees have more branches than there are candidates.
TEST(BlockMatching, FillsTheListsOfATileThatHasJustEnoughCandidates) {
    GIMG<float> tile(8, 15);
    std::mt19937 random(11);
    std::uniform_real_distribution<float> noise(0.0f, 1.0f);
    ImBMResult result;
    result.setGeometry(8, 15, 1);
    ImBMAnn matcher(4, 5, 0.5f);
    for (int turn = 0; turn < 100; ++turn) {
        for (std::int32_t y = 0; y < 15; ++y)
            std::ranges::generate(tile.row(y), [&] { return noise(random); });
        matcher.proc(tile, result);
        for (std::int32_t q = 0; q < 8; ++q) {
            const std::int32_t* matches = &result.matchIdx[static_cast<std::size_t>(q * 8)];
            ASSERT_EQ(std::set<std::int32_t>(matches, matches + 8).size(), 8u);
        }
    }
}

TEST(BlockMatching, LeavesTheHostsRandomNumbersAlone) {
    GIMG<float> tile(32, 32);
    fillTile(tile, 0.02f);
    ImBMResult result;
    result.setGeometry(32, 32, 3);
    std::srand(5);
    const int first = std::rand(), second = std::rand();
    std::srand(5);
    EXPECT_EQ(std::rand(), first);
    ImBMAnn(2, 24, 0.5f).proc(tile, result);
    EXPECT_EQ(std::rand(), second);
}

} // namespace
} // namespace kt7
