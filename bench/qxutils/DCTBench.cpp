#include "qxutils/DCT.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <vector>

#include "prim/kernels/select.h"

namespace kt7 {
namespace {

// Forward and inverse transform of one cube on each CPU target.
void cubePair(benchmark::State& state) {
    const auto target = static_cast<CpuTarget>(state.range(0));
    if (target > bestCpuTarget())
        return state.SkipWithError("not on this CPU");
    selectKernels(target);
    alignas(64) float cube[512];
    std::ranges::fill(cube, 0.25f);
    for (auto _ : state) {
        nDCT8x8x8(cube);
        nIDCT8x8x8(cube);
        benchmark::ClobberMemory();
    }
    selectKernels(bestCpuTarget());
}
BENCHMARK(cubePair)->ArgName("target")->DenseRange(0, 2);

} // namespace
} // namespace kt7
