#include "qxenhlib/ImBMAnn.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cmath>
#include <cstddef>
#include <random>

#include <flann/algorithms/dist.h>
#include <flann/algorithms/kdtree_index.h>

#include "bench/qxenhlib/MatchingSteps.h"
#include "prim/kernels/select.h"

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
        : tile(tileSide, tileSide), checks(static_cast<std::int32_t>(state.range(1))),
          matcher(static_cast<std::int32_t>(state.range(0)), checks, 0.5f), steps(matcher) {
        selectKernels(bestCpuTarget());
        fillTile(tile);
        result.setGeometry(tileSide, tileSide, static_cast<std::int32_t>(state.range(2)));
        steps.prepare(result);
        steps.computeFeatures(tile);
    }

    GIMG<float> tile;
    std::int32_t checks;
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

void forestGrowing(benchmark::State& state) {
    Fixture fixture(state);
    for (auto _ : state) {
        fixture.steps.grow();
        fixture.steps.drop();
    }
}

void forestSearch(benchmark::State& state) {
    Fixture fixture(state);
    fixture.steps.grow();
    for (auto _ : state)
        fixture.steps.search(fixture.result);
    reportDistance(state, fixture.result);
}

// The same with the index as it comes, to know what the adaptations are worth.
using PlainIndex = flann::KDTreeIndex<flann::L2<float>>;

PlainIndex plainIndex(Fixture& fixture, const benchmark::State& state) {
    const auto candidates = static_cast<std::size_t>(fixture.result.candX) *
                            static_cast<std::size_t>(fixture.result.candY);
    return PlainIndex(flann::Matrix<float>(fixture.steps.features(), candidates, 16),
                      flann::KDTreeIndexParams(static_cast<int>(state.range(0))));
}

void plainGrowing(benchmark::State& state) {
    Fixture fixture(state);
    for (auto _ : state)
        plainIndex(fixture, state).buildIndex();
}

void plainSearch(benchmark::State& state) {
    Fixture fixture(state);
    PlainIndex index = plainIndex(fixture, state);
    index.buildIndex();
    flann::KNNResultSet<float> best(8);
    ImBMResult& result = fixture.result;
    std::array<std::size_t, 8> found{};
    for (auto _ : state)
        for (std::int32_t q = 0; q < result.queryX * result.queryY; ++q) {
            const std::ptrdiff_t own =
                std::ptrdiff_t{q / result.queryX} * result.step * result.candX +
                q % result.queryX * result.step;
            best.clear();
            index.findNeighbors(best, fixture.steps.features() + own * 16,
                                flann::SearchParams(fixture.checks));
            best.copy(found.data(), result.matchDist.get() + std::ptrdiff_t{q} * 8, 8);
            benchmark::DoNotOptimize(found);
        }
    reportDistance(state, result);
}

// The settings of the finest two layers, fast and full.
void settings(benchmark::internal::Benchmark* bench) {
    bench->ArgNames({"trees", "checks", "step"})->Unit(benchmark::kMillisecond);
    for (const std::array<std::int64_t, 3>& args :
         {std::array<std::int64_t, 3>{1, 16, 3}, {2, 24, 3}, {2, 24, 2}, {4, 32, 2}})
        bench->Args({args[0], args[1], args[2]});
}

BENCHMARK(tileFeatures)->Args({1, 16, 2})->Unit(benchmark::kMicrosecond);
BENCHMARK(forestGrowing)->Apply(settings);
BENCHMARK(plainGrowing)->Apply(settings);
BENCHMARK(forestSearch)->Apply(settings);
BENCHMARK(plainSearch)->Apply(settings);

} // namespace
} // namespace kt7
