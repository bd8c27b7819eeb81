#include <benchmark/benchmark.h>

#include "prim/kernels/select.h"
#include "qxenhlib/chromaMedian.h"
#include "qxenhlib/grainStage.h"

namespace kt7 {
namespace {

/// A stage over a plane of 3 megapixels.
template <class Stage>
void wholePlane(benchmark::State& state, Stage stage) {
    selectKernels(bestCpuTarget());
    GIMG<std::int16_t> plane(2000, 1500);
    for (std::int32_t y = 0; y < plane.height; ++y)
        for (std::int32_t x = 0; x < plane.width; ++x)
            *plane.at(x, y) = static_cast<std::int16_t>((x * 7 ^ y * 13) % 4000);
    for (auto _ : state)
        stage(plane);
}
BENCHMARK_CAPTURE(wholePlane, grain, [](GIMG<std::int16_t>& p) { addGrain(p, 0.01f); })
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();
BENCHMARK_CAPTURE(wholePlane, chromaMedian, [](GIMG<std::int16_t>& p) { chromaMedian(p, 1); })
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

} // namespace
} // namespace kt7
