#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>

#include "prim/kernels/select.h"
#include "qxenhlib/CDTDWT2dDnCbCr.h"
#include "qxutils/parallel.h"

namespace kt7 {
namespace {

constexpr std::int32_t side = 800;

void paint(GIMG<float>& tile, float scale) {
    std::uint32_t state = 1;
    for (std::int32_t y = 0; y < tile.height; ++y)
        for (float& v : tile.row(y)) {
            state = state * 1664525u + 1013904223u;
            v = scale * (static_cast<float>(state >> 8) * 0x1p-24f - 0.5f) +
                0.2f * std::sin(0.01f * static_cast<float>(y));
        }
}

void countPixels(benchmark::State& state) {
    const double pixels = static_cast<double>(state.iterations()) * side * side;
    state.counters["MP/s"] = benchmark::Counter(pixels * 1e-6, benchmark::Counter::kIsRate);
}

bool chooseTarget(benchmark::State& state, std::int64_t wanted) {
    const auto target = static_cast<CpuTarget>(wanted);
    if (target > bestCpuTarget()) {
        state.SkipWithError("not on this CPU");
        return false;
    }
    selectKernels(target);
    return true;
}

// Arguments: threads, CPU target. CPU time is that of all threads.
void denoiseTile(benchmark::State& state) {
    if (!chooseTarget(state, state.range(1)))
        return;
    const std::int32_t before = maxThreads();
    omp_set_num_threads(static_cast<int>(state.range(0)));
    const FloatModeScope floatMode;
    GIMG<float> luma(side, side), cb(side, side), cr(side, side), noisy(side, side);
    paint(luma, 0.1f);
    paint(noisy, 0.05f);
    CDTDWT2dDnCbCr denoiser;
    denoiser.setup(side, side, 4);
    for (auto _ : state) {
        // A tile that is denoised again and again would end up flat.
        for (GIMG<float>* chroma : {&cb, &cr})
            std::memcpy(chroma->data, noisy.data, std::size_t{side} * side * sizeof(float));
        denoiser.denoiseC(luma, cb, cr, 0.02f, 0.02f, 0.13f, 0.06f, 0.13f);
    }
    countPixels(state);
    omp_set_num_threads(before);
}
BENCHMARK(denoiseTile)
    ->ArgsProduct({{1, 2}, {0, 1, 2}})
    ->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime()
    ->UseRealTime();

} // namespace
} // namespace kt7
