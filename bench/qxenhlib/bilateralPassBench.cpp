// The bilateral pass on a four-megapixel plane. Arguments: strength in thousandths, cell size.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>

#include "prim/copy.h"
#include "qxenhlib/bilateralPass.h"
#include "qxutils/parallel.h"

namespace kt7 {
namespace {

void bilateral(benchmark::State& state) {
    GIMG<std::int16_t> scene(2048, 2048), plane(2048, 2048);
    std::mt19937 random(2);
    std::normal_distribution<float> grain(0.0f, 600.0f);
    for (std::int32_t y = 0; y < scene.height; ++y)
        for (std::int32_t x = 0; x < scene.width; ++x)
            *scene.at(x, y) = static_cast<std::int16_t>(
                std::clamp(static_cast<float>((x / 100 * 2900 + y * 3) % 30000) + grain(random),
                           0.0f, 32767.0f));
    const std::int32_t threads = maxThreads();
    setMaxThreads(static_cast<std::int32_t>(state.range(2)));
    for (auto _ : state) {
        primCopy16sC1(scene.data, scene.stepBytes, plane.data, plane.stepBytes, plane.roi());
        bilateralPass(plane, static_cast<float>(state.range(0)) / 1000.0f,
                      static_cast<float>(state.range(1)));
    }
    setMaxThreads(threads);
    state.SetItemsProcessed(state.iterations() * scene.width * scene.height);
}
BENCHMARK(bilateral)
    ->ArgNames({"strength", "cell", "threads"})
    ->ArgsProduct({{1, 30, 100}, {4, 12}, {1, 2}})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

} // namespace
} // namespace kt7
