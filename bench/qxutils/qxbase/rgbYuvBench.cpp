#include "qxutils/qxbase/rgbYuv.h"

#include <benchmark/benchmark.h>

#include <vector>

#include "prim/kernels/select.h"

namespace kt7 {
namespace {

void fillTables(benchmark::State& state) {
    NoiseNormalize tables;
    for (auto _ : state)
        benchmark::DoNotOptimize(
            tables.setup(0.01f, 0.02f, 0.03f, NoiseNormalize::usualClipFactor));
}
BENCHMARK(fillTables)->Unit(benchmark::kMillisecond)->UseRealTime();

template <class Sample>
void rgbThroughYuv(benchmark::State& state) {
    constexpr std::int32_t width = 4000, height = 1000;
    selectKernels(bestCpuTarget());
    NoiseNormalize tables;
    tables.setup(0.01f, 0.02f, 0.03f, NoiseNormalize::usualClipFactor);
    const NoiseNormalize* const three[3] = {&tables, &tables, &tables};
    GIMG<std::int16_t> y(width, height), u(width, height), v(width, height);
    GIMG<std::int16_t>* const written[3] = {&y, &u, &v};
    const GIMG<std::int16_t>* const read[3] = {&y, &u, &v};
    std::vector<Sample> image(std::size_t{width} * height * 3);
    for (std::size_t i = 0; i < image.size(); ++i)
        image[i] =
            static_cast<Sample>((i * 2654435761u >> 20) % (sizeof(Sample) == 1 ? 256 : 32768));
    constexpr auto rowBytes = static_cast<std::int32_t>(width * 3 * sizeof(Sample));
    const bool forward = state.range(0) == 1;
    for (auto _ : state) {
        if (forward)
            qxRGBToYUV(image.data(), rowBytes, width, height, written, three);
        else
            qxYUVToRGB(read, image.data(), rowBytes, width, height, three);
    }
    state.counters["megapixels"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * width * height / 1e6,
                           benchmark::Counter::kIsRate);
}
BENCHMARK(rgbThroughYuv<std::uint8_t>)->ArgName("forward")->Arg(1)->Arg(0)->UseRealTime();
BENCHMARK(rgbThroughYuv<std::uint16_t>)->ArgName("forward")->Arg(1)->Arg(0)->UseRealTime();

} // namespace
} // namespace kt7
