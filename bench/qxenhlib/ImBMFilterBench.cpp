#include "qxenhlib/ImBMFilter.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <vector>

#include "prim/kernels/select.h"

namespace kt7 {
namespace {

// Matches near the query, as in a photo, and anywhere in the tile.
void fillMatches(ImBMResult& result, std::int32_t reach) {
    std::minstd_rand random(1);
    std::uniform_int_distribution<std::int32_t> offset(-reach, reach);
    for (std::int32_t q = 0; q < result.queryX * result.queryY; ++q)
        for (std::int32_t j = 0; j < 8; ++j) {
            const std::int32_t x = q % result.queryX * result.step + (j > 0 ? offset(random) : 0);
            const std::int32_t y = q / result.queryX * result.step + (j > 0 ? offset(random) : 0);
            result.matchIdx[static_cast<std::size_t>(q * 8 + j)] =
                std::clamp(y, 0, result.candY - 1) * result.candX +
                std::clamp(x, 0, result.candX - 1);
        }
}

// Arguments: CPU target, boost in hundredths, reach of the matches in pixels.
void filterGroups(benchmark::State& state) {
    const auto target = static_cast<CpuTarget>(state.range(0));
    if (target > bestCpuTarget())
        return state.SkipWithError("not on this CPU");
    selectKernels(target);
    ImBMResult result;
    result.setGeometry(128, 128, 2);
    fillMatches(result, static_cast<std::int32_t>(state.range(2)));
    const std::vector<float> thresholds(64, 0.06f);
    ImBMFilter filter;
    filter.init(result, thresholds.data(), static_cast<float>(state.range(1)) * 0.01f);
    GIMG<float> noisy(128, 128), tile(128, 128);
    std::minstd_rand random(2);
    std::normal_distribution<float> noise(0.5f, 0.02f);
    for (std::int32_t y = 0; y < 128; ++y)
        for (float& v : noisy.row(y))
            v = noise(random);
    for (auto _ : state) {
        for (std::int32_t y = 0; y < 128; ++y)
            std::ranges::copy(noisy.row(y), tile.row(y).begin());
        filter.filterImage(tile, result, 1.0f);
    }
    selectKernels(bestCpuTarget());
    const double groups = static_cast<double>(result.queryX) * result.queryY;
    state.counters["per_group"] =
        benchmark::Counter(groups * static_cast<double>(state.iterations()),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(filterGroups)
    ->ArgNames({"target", "boost", "reach"})
    ->ArgsProduct({{0, 1, 2}, {0, 30}, {3, 127}})
    ->Unit(benchmark::kMicrosecond);

} // namespace
} // namespace kt7
