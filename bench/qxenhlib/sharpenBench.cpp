#include <benchmark/benchmark.h>

#include "prim/kernels/select.h"
#include "qxenhlib/sharpenStage.h"

namespace kt7 {
namespace {

/// The sharpening of 3 megapixels; arguments: CPU target, hundredths of `sharpen`.
void sharpenPlane(benchmark::State& state) {
    const auto target = static_cast<CpuTarget>(state.range(0));
    if (target > bestCpuTarget())
        return state.SkipWithError("this CPU can't run the target");
    selectKernels(target);
    GIMG<std::int16_t> luma(2000, 1500);
    for (std::int32_t y = 0; y < luma.height; ++y)
        for (std::int32_t x = 0; x < luma.width; ++x)
            *luma.at(x, y) = static_cast<std::int16_t>(12000 + (x * 7 ^ y * 13) % 4000);
    for (auto _ : state)
        sharpenLuma(luma, static_cast<float>(state.range(1)) / 100.0f);
    state.counters["megapixels"] = benchmark::Counter(static_cast<double>(state.iterations()) * 3.0,
                                                      benchmark::Counter::kIsRate);
}
BENCHMARK(sharpenPlane)
    ->ArgNames({"target", "sharpen"})
    ->ArgsProduct({{0, 1, 2}, {20, 50, 170}})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

} // namespace
} // namespace kt7
