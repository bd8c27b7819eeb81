#include "qxenhlib/ImBMAnn.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <random>

#include "prim/kernels/select.h"

namespace kt7 {

/// The steps of ImBMAnn::proc, one by one.
class MatchingSteps {
  public:
    enum Step { features, growing, searching };

    static void time(benchmark::State& state, Step step) {
        selectKernels(bestCpuTarget());
        GIMG<float> tile(128, 128);
        std::minstd_rand random(1);
        std::normal_distribution<float> noise(0.0f, 0.02f);
        for (std::int32_t y = 0; y < tile.height; ++y)
            for (std::int32_t x = 0; x < tile.width; ++x) {
                const float edge = x * 3 + y * 2 > 300 ? 0.3f : 0.0f;
                const float waves = 0.1f * std::sin(static_cast<float>(x * x + 40 * y) * 0.004f);
                *tile.at(x, y) = 0.3f + edge + waves + noise(random);
            }
        ImBMAnn matcher(static_cast<std::int32_t>(state.range(0)),
                        static_cast<std::int32_t>(state.range(1)), 0.5f);
        ImBMResult result;
        result.setGeometry(128, 128, static_cast<std::int32_t>(state.range(2)));
        matcher.prepare(result);
        matcher.computeFeatures(tile);
        matcher.growForest();
        for (auto _ : state) {
            if (step == features)
                matcher.computeFeatures(tile);
            if (step == growing) {
                matcher.dropForest();
                matcher.growForest();
            }
            if (step == searching)
                matcher.search(result);
        }
    }
};

namespace {

// Trees, checks and query step of the finest two layers, fast and full.
void settings(benchmark::internal::Benchmark* bench) {
    bench->ArgNames({"trees", "checks", "step"})->Unit(benchmark::kMillisecond);
    for (const auto& args :
         {std::array<std::int64_t, 3>{1, 16, 3}, {2, 24, 3}, {2, 24, 2}, {4, 32, 2}})
        bench->Args({args[0], args[1], args[2]});
}
void tileFeatures(benchmark::State& state) {
    MatchingSteps::time(state, MatchingSteps::features);
}
void forestGrowing(benchmark::State& state) {
    MatchingSteps::time(state, MatchingSteps::growing);
}
void forestSearch(benchmark::State& state) {
    MatchingSteps::time(state, MatchingSteps::searching);
}
BENCHMARK(tileFeatures)->Args({1, 16, 2})->Unit(benchmark::kMicrosecond);
BENCHMARK(forestGrowing)->Apply(settings);
BENCHMARK(forestSearch)->Apply(settings);

} // namespace
} // namespace kt7
