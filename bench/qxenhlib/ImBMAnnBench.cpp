#include "qxenhlib/ImBMAnn.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <memory>
#include <random>

#include "bench/qxenhlib/MatchingSteps.h"
#include "prim/kernels/select.h"
#include "qxenhlib/FeatureForest.h"
#include "qxenhlib/FlannForest.h"

namespace kt7 {
namespace {

constexpr std::int32_t tileSide = 128;

void fillTile(GIMG<float>& tile) {
    std::minstd_rand random(1);
    std::normal_distribution<float> noise(0.0f, 0.02f);
    for (std::int32_t y = 0; y < tile.height; ++y)
        for (std::int32_t x = 0; x < tile.width; ++x) {
            const float edge = x * 3 + y * 2 > 300 ? 0.3f : 0.0f;
            const float waves = 0.1f * std::sin(static_cast<float>(x * x + 40 * y) * 0.004f);
            *tile.at(x, y) = 0.3f + edge + waves + noise(random);
        }
}

// A matcher with the features of a tile, set up by the benchmark's trees, checks and query step.
struct Fixture {
    explicit Fixture(const benchmark::State& state)
        : tile(tileSide, tileSide), trees(static_cast<std::int32_t>(state.range(0))),
          matcher(trees, static_cast<std::int32_t>(state.range(1)), 0.5f), steps(matcher) {
        selectKernels(bestCpuTarget());
        fillTile(tile);
        result.setGeometry(tileSide, tileSide, static_cast<std::int32_t>(state.range(2)));
        steps.prepare(result);
        steps.computeFeatures(tile);
    }

    template <class Forest>
    void searchWith() {
        steps.searchWith(std::make_unique<Forest>(result.candX * result.candY, trees));
    }

    GIMG<float> tile;
    std::int32_t trees;
    ImBMAnn matcher;
    MatchingSteps steps;
    ImBMResult result;
};

// Mean distance of the eight matches, to see that speed has not cost quality.
void reportDistance(benchmark::State& state, const ImBMResult& result) {
    double sum = 0;
    const std::ptrdiff_t count = std::ptrdiff_t{result.queryX} * result.queryY * result.numMatches;
    for (std::ptrdiff_t i = 0; i < count; ++i)
        sum += double{result.matchDist.get()[i]};
    state.counters["distance"] = sum / static_cast<double>(count);
}

void tileFeatures(benchmark::State& state) {
    Fixture fixture(state);
    for (auto _ : state)
        fixture.steps.computeFeatures(fixture.tile);
}

// FLANN's forest beside ours shows what ours is worth.
template <class Forest>
void growing(benchmark::State& state) {
    Fixture fixture(state);
    fixture.searchWith<Forest>();
    for (auto _ : state)
        fixture.steps.grow();
}

template <class Forest>
void search(benchmark::State& state) {
    Fixture fixture(state);
    fixture.searchWith<Forest>();
    fixture.steps.grow();
    for (auto _ : state)
        fixture.steps.search(fixture.result);
    reportDistance(state, fixture.result);
}

// The settings of the finest two layers, fast and full.
void settings(benchmark::internal::Benchmark* bench) {
    bench->ArgNames({"trees", "checks", "step"})->Unit(benchmark::kMillisecond);
    for (const std::array<std::int64_t, 3>& args :
         {std::array<std::int64_t, 3>{1, 16, 3}, {2, 24, 3}, {2, 24, 2}, {4, 32, 2}})
        bench->Args({args[0], args[1], args[2]});
}

BENCHMARK(tileFeatures)->Args({1, 16, 2})->Unit(benchmark::kMicrosecond);
BENCHMARK(growing<FeatureForest>)->Apply(settings);
BENCHMARK(growing<FlannForest>)->Apply(settings);
BENCHMARK(search<FeatureForest>)->Apply(settings);
BENCHMARK(search<FlannForest>)->Apply(settings);

} // namespace
} // namespace kt7
