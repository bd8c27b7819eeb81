#include <benchmark/benchmark.h>

#include <vector>

#include "include/kt7lib/kt7lib.h"
#include "prim/kernels/select.h"

namespace {

/// The estimate on 24 megapixels; the argument is the image's format.
void estimateNoise(benchmark::State& state) {
    kt7::selectKernels(kt7::bestCpuTarget());
    constexpr std::int32_t width = 6000, height = 4000;
    const auto format = static_cast<std::int32_t>(state.range(0));
    const std::size_t bytes = format == 1 ? 1 : 2;
    std::vector<std::uint8_t> data(std::size_t{width} * height * 3 * bytes);
    std::uint32_t random = 1;
    for (std::size_t i = 0; i < data.size(); i += bytes) {
        random = random * 1664525 + 1013904223;
        // A ramp along each row under noise of some hundredths of full scale.
        const std::size_t ramp = i / 3 / bytes % width * 110 / width;
        data[i + bytes - 1] = static_cast<std::uint8_t>(ramp + random / 0x10000000u);
    }
    PSImage image{format, data.data(), static_cast<std::int32_t>(width * 3 * bytes), width, height};
    QxNoiseLevels levels;
    for (auto _ : state)
        benchmark::DoNotOptimize(qxKt7NoiseEst(&image, &levels));
    state.counters["lumaMid"] = static_cast<double>(levels.lumaMid);
}
BENCHMARK(estimateNoise)
    ->ArgName("format")
    ->Arg(1)
    ->Arg(3)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

} // namespace
