#include "qxenhlib/ImBMAnn.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <iterator>
#include <limits>
#include <numbers>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "prim/matching.h"
#include "qxenhlib/FeatureForest.h"
#include "qxenhlib/FlannForest.h"
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
            const std::int32_t* matches = &result.matchIdx[8 * static_cast<std::size_t>(q)];
            const float* distances = &result.matchDist[8 * static_cast<std::size_t>(q)];
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

// What searches of a tile find, against an exhaustive one.
struct Found {
    double recall = 0;   ///< share of the eight nearest that is among the eight found
    double distance = 0; ///< sum over all lists, by the sum of the nearest
};

class NearestOfATile {
  public:
    NearestOfATile() {
        GIMG<float> tile(72, 64);
        fillTile(tile, 0.01f);
        ImBMResult result;
        result.setGeometry(72, 64, 3);
        features_ = featuresOf(tile, result, 0.5);
        for (const Feature& f : features_)
            std::ranges::copy(f, std::back_inserter(floats_));
        for (std::int32_t y = 0, list = 0; y < result.candY; y += 3)
            for (std::int32_t x = 0; x < result.candX; x += 3)
                queries_.push_back({y * result.candX + x, list++});
        for (const FeatureSearch::Query& query : queries_) {
            std::vector<double> all;
            for (const Feature& f : features_)
                all.push_back(squaredDistance(features_[query.candidate], f));
            std::ranges::sort(all);
            eighth_.push_back(all[7]);
            sum_ += std::accumulate(all.begin(), all.begin() + 8, 0.0);
        }
    }

    // Mean over several forests, as their random choices differ.
    template <class Forest>
    Found findWith(std::int32_t trees, std::int32_t checks) {
        constexpr int turns = 8;
        std::vector<std::int32_t> matches(queries_.size() * 8);
        std::vector<float> distances(matches.size());
        Forest forest(static_cast<std::int32_t>(features_.size()), trees);
        const double share = 1.0 / (turns * static_cast<double>(matches.size()));
        Found found;
        for (int turn = 0; turn < turns; ++turn) {
            forest.grow(floats_.data());
            forest.search(queries_, checks, matches.data(), distances.data());
            for (std::size_t i = 0; i < matches.size(); ++i) {
                const double distance =
                    squaredDistance(features_[queries_[i / 8].candidate], features_[matches[i]]);
                EXPECT_NEAR(distance, double{distances[i]}, 1e-6);
                found.distance += distance / sum_ / turns;
                found.recall += distance <= eighth_[i / 8] ? share : 0.0;
            }
        }
        return found;
    }

  private:
    std::vector<Feature> features_;
    std::vector<float> floats_;
    std::vector<FeatureSearch::Query> queries_;
    std::vector<double> eighth_; ///< distance of the eighth nearest, for each query
    double sum_ = 0;
};

// Stock FLANN is the referee: with the same trees and checks ours finds as much. More of them come
// nearer.
TEST(FeatureSearches, FindNearlyTheNearestAndOursAsMuchAsTheReferee) {
    NearestOfATile nearest;
    struct Case {
        std::int32_t trees, checks;
        double leastRecall, mostDistance;
    };
    for (const Case& c : {Case{1, 16, 0.8, 1.5}, Case{2, 24, 0.92, 1.12}, Case{4, 32, 0.96, 1.05},
                          Case{4, 1000, 0.999, 1.001}}) {
        const Found ours = nearest.findWith<FeatureForest>(c.trees, c.checks);
        const Found referee = nearest.findWith<FlannForest>(c.trees, c.checks);
        SCOPED_TRACE(std::to_string(c.trees) + " trees, " + std::to_string(c.checks) + " checks");
        for (const Found& found : {ours, referee}) {
            EXPECT_GE(found.recall, c.leastRecall);
            EXPECT_GE(found.distance, 0.999);
            EXPECT_LT(found.distance, c.mostDistance);
        }
        EXPECT_GE(ours.recall, referee.recall - 0.02);
        EXPECT_LT(ours.distance - 1, (referee.distance - 1) * 2 + 0.001);
        RecordProperty("recall_" + std::to_string(c.checks), std::to_string(ours.recall));
        RecordProperty("referee_" + std::to_string(c.checks), std::to_string(referee.recall));
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
            const std::int32_t* matches = &result.matchIdx[8 * static_cast<std::size_t>(q)];
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
            const std::int32_t* matches = &result.matchIdx[8 * static_cast<std::size_t>(q)];
            ASSERT_EQ(std::set<std::int32_t>(matches, matches + 8).size(), 8u);
        }
    }
}

} // namespace
} // namespace kt7
