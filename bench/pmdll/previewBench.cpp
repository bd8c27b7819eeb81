// Previews of a 24-megapixel image. The counter `copies` is the time as a multiple of that of a
// plain copy, by as many threads, that reads and writes as many bytes: samples in and out are
// counted once.
#include <benchmark/benchmark.h>
#include <lcms2.h>

#include <chrono>
#include <cstring>
#include <vector>

#include "include/kt7lib/kt7lib.h"
#include "prim/kernels/select.h"
#include "qxutils/parallel.h"

namespace kt7 {
namespace {

constexpr std::int32_t width = 6000, height = 4000;
constexpr std::size_t pixels = std::size_t{width} * height;

std::vector<std::uint8_t> samples(std::size_t count) {
    std::vector<std::uint8_t> made(count);
    std::uint32_t state = 1;
    for (std::uint8_t& v : made) {
        state = state * 1664525u + 1013904223u;
        v = static_cast<std::uint8_t>(state >> 26);
    }
    return made;
}

template <class Body>
double seconds(Body body) {
    const auto start = std::chrono::steady_clock::now();
    body();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Times body() and, in turns with it, the copy of half of `bytes`.
template <class Body>
void againstCopy(benchmark::State& state, std::size_t bytes, Body body) {
    selectKernels(bestCpuTarget());
    const std::size_t each = bytes / 2;
    const std::vector<std::uint8_t> from(each, 1);
    std::vector<std::uint8_t> to(each, 2);
    const auto copy = [&] {
        constexpr std::int32_t shares = 1000;
        parallelRanges(shares, [&](std::int32_t begin, std::int32_t end) {
            const std::size_t first = each * static_cast<std::size_t>(begin) / shares;
            const std::size_t last = each * static_cast<std::size_t>(end) / shares;
            std::memcpy(to.data() + first, from.data() + first, last - first);
        });
    };
    body();
    double bodies = 0.0, copies = 0.0;
    for (auto _ : state) {
        const double time = seconds(body);
        state.SetIterationTime(time);
        bodies += time;
        copies += seconds(copy);
        benchmark::DoNotOptimize(to.data());
    }
    state.counters["copies"] = bodies / copies;
    state.counters["megapixels"] =
        benchmark::Counter(static_cast<double>(state.iterations() * pixels) / 1e6 / bodies);
}

constexpr auto sRgb = &cmsCreate_sRGBProfile;

std::vector<std::uint8_t> blockOf(cmsHPROFILE profile) {
    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(profile, nullptr, &size);
    std::vector<std::uint8_t> block(size);
    cmsSaveProfileToMem(profile, block.data(), &size);
    cmsCloseProfile(profile);
    return block;
}

std::vector<std::uint8_t> wideProfile() {
    const cmsCIExyY white = {0.3127, 0.3290, 1.0};
    const cmsCIExyYTRIPLE primaries = {{0.64, 0.33, 1.0}, {0.21, 0.71, 1.0}, {0.15, 0.06, 1.0}};
    cmsToneCurve* const gamma = cmsBuildGamma(nullptr, 2.2);
    cmsToneCurve* const curves[3] = {gamma, gamma, gamma};
    const cmsHPROFILE profile = cmsCreateRGBProfile(&white, &primaries, curves);
    cmsFreeToneCurve(gamma);
    return blockOf(profile);
}

/// scale in percent.
void screenBuffer(benchmark::State& state, std::int32_t format, bool profiles) {
    const std::size_t sampleBytes = format == 3 ? 2 : 1;
    std::vector<std::uint8_t> image = samples(pixels * 3 * sampleBytes);
    PSImage host{format, image.data(), static_cast<std::int32_t>(width * 3 * sampleBytes), width,
                 height};
    const auto percent = static_cast<std::int32_t>(state.range(0));
    const std::int32_t w = width * percent / 100, h = height * percent / 100;
    const float factor = static_cast<float>(percent) / 100.0f;
    std::vector<std::uint8_t> screen(std::size_t{4} * static_cast<std::size_t>(w) *
                                     static_cast<std::size_t>(h));
    const std::vector<std::uint8_t> source = blockOf(sRgb()), target = wideProfile();
    const QxIccProfiles both{source.data(), static_cast<std::int32_t>(source.size()), target.data(),
                             static_cast<std::int32_t>(target.size())};
    againstCopy(state, image.size() + screen.size(), [&] {
        if (profiles)
            PSImageICC2QImage(&both, &host, screen.data(), 4 * w, w, h, factor);
        else
            PSImage2QImage(&host, screen.data(), 4 * w, w, h, factor);
    });
}

// 100 is the same scale, 29 two megapixels.
BENCHMARK_CAPTURE(screenBuffer, rgb8, 1, false)
    ->ArgName("percent")
    ->Arg(100)
    ->Arg(29)
    ->Arg(150)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(screenBuffer, rgb16, 3, false)
    ->ArgName("percent")
    ->Arg(100)
    ->Arg(29)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(screenBuffer, rgb8Profiles, 1, true)
    ->ArgName("percent")
    ->Arg(100)
    ->Arg(29)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

using View = std::int32_t (*)(std::uint8_t*, std::int32_t, std::int32_t, std::int32_t, std::int32_t,
                              std::int32_t);

void autoLevel(benchmark::State& state, View view) {
    std::vector<std::uint8_t> rgb = samples(pixels * 3);
    const auto mode = static_cast<std::int32_t>(state.range(0));
    againstCopy(state, rgb.size() * 2,
                [&] { view(rgb.data(), 3 * width, width, height, mode, 255); });
}
BENCHMARK_CAPTURE(autoLevel, rgb, &qxRGBAutoLevel)
    ->ArgName("mode")
    ->DenseRange(0, 3)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(autoLevel, yCbCr, &qxRGB2YCbCrAutoLevel)
    ->ArgName("mode")
    ->DenseRange(0, 4)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(autoLevel, gDbDr, &qxRGB2GDbDrAutoLevel)
    ->ArgName("mode")
    ->DenseRange(0, 4)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

template <class From, class To>
void scales(benchmark::State& state,
            std::int32_t (*convert)(const From*, std::int32_t, std::int32_t, std::int32_t, To*,
                                    std::int32_t)) {
    const std::vector<From> from(pixels, From{77});
    std::vector<To> to(pixels);
    againstCopy(state, pixels * (sizeof(From) + sizeof(To)), [&] {
        convert(from.data(), width * static_cast<std::int32_t>(sizeof(From)), width, height,
                to.data(), width * static_cast<std::int32_t>(sizeof(To)));
    });
}
BENCHMARK_CAPTURE(scales, to15, &psC1U8toU15)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(scales, to8, &psC1U15toU8)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace
} // namespace kt7
