// Whole calls of the photo library and its Wiener stage alone: processor time, threads, memory.
//
//   kt7_bench_photo [--megapixels 3] [--repeat 3]
//
// The picture is the demo scene with sensor noise. Rows print the least of `repeat` runs; calls on one
// thread and on two take turns.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/processUse.h"
#include "include/kt7photo/kt7photo.h"
#include "photo/Planes.h"
#include "photo/wienerStage.h"
#include "qxutils/parallel.h"
#include "tools/kt7/scene/demoScene.h"

namespace {

using namespace kt7::bench;

struct Row {
    double wall = 1e9, processor = 1e9;
    std::int64_t peak = 0;

    template <class Call>
    void run(Call&& call) {
        resetPeakMemory();
        const std::int64_t before = memory("VmRSS:");
        const auto begin = std::chrono::steady_clock::now();
        const double used = processorSeconds();
        call();
        processor = std::min(processor, processorSeconds() - used);
        wall = std::min(
            wall, std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
        peak = std::max(peak, peakMemory() - before);
    }
};

void check(std::int32_t result) {
    if (result != kt7PhotoDone)
        throw std::runtime_error(kt7PhotoResultText(result));
}

} // namespace

int main(int argc, char** argv) try {
    CLI::App app{"Benchmark of the photo library"};
    double megapixels = 3.0;
    int repeat = 3;
    app.add_option("--megapixels", megapixels, "size of the picture");
    app.add_option("--repeat", repeat, "runs of each row")->check(CLI::Range(1, 100));
    CLI11_PARSE(app, argc, argv);

    const double side = std::sqrt(megapixels * 1e6 / 1.5);
    const kt7::DemoImage scene =
        kt7::renderDemoScene(static_cast<int>(1.5 * side), static_cast<int>(side));
    const std::vector<std::uint8_t> noisy = kt7::toRgb8(kt7::addSensorNoise(scene, {}));
    std::vector<std::uint8_t> rgb = noisy;
    const double pixels = static_cast<double>(scene.width) * scene.height;
    Kt7PhotoImage image{};
    image.size = sizeof image;
    check(kt7PhotoInterleaved(&image, kt7PhotoU8, kt7PhotoRgb, kt7PhotoNoAlpha, rgb.data(),
                              scene.width, scene.height, std::int64_t{3} * scene.width));
    Kt7PhotoSettings settings{};
    settings.size = sizeof settings;
    check(kt7PhotoDefaults(&settings));
    const auto print = [&](const char* name, const Row& one, const Row& two) {
        std::printf("%-26s %8.3f %8.3f %8.3f %8.2f %8.1f\n", name, 1e6 * one.processor / pixels,
                    one.wall, two.wall, one.wall / two.wall,
                    static_cast<double>(two.peak) / pixels);
    };
    std::printf("%.2f megapixels\n%-26s %8s %8s %8s %8s %8s\n", 1e-6 * pixels, "", "cpu s/MP",
                "1 thread", "2", "ratio", "bytes/px");
    constexpr const char* names[] = {"fast", "full", "best"};
    for (const std::int32_t quality : {kt7PhotoFast, kt7PhotoFull, kt7PhotoBest}) {
        settings.quality = quality;
        Row rows[2];
        for (int i = 0; i < 2 * repeat; ++i) {
            rgb = noisy;
            settings.threads = 1 + i % 2;
            rows[i % 2].run([&] { check(kt7PhotoDenoise(&image, &image, &settings)); });
        }
        print(names[quality], rows[0], rows[1]);
    }

    kt7::photo::Planes photo(scene.width, scene.height, 3), pilot(scene.width, scene.height, 3);
    for (std::int32_t y = 0; y < scene.height; ++y) {
        const std::size_t at = static_cast<std::size_t>(y) * static_cast<std::size_t>(scene.width);
        photo.setRow(y, &noisy[3 * at], &noisy[3 * at + 1], &noisy[3 * at + 2], 3, 255.0f);
        pilot.setRow(y, &rgb[3 * at], &rgb[3 * at + 1], &rgb[3 * at + 2], 3, 255.0f);
    }
    photo.extend();
    pilot.extend();
    kt7::photo::StageNoise noise{};
    std::fill(&noise.power[0][0], &noise.power[0][0] + 3 * 64, 100.0f);
    std::fill(&noise.gain[0][0], &noise.gain[0][0] + 3 * kt7PhotoBands, 1.0f);
    kt7::photo::Progress progress(nullptr, nullptr);
    for (const bool refining : {false, true}) {
        noise.refining = refining;
        Row rows[2];
        for (int i = 0; i < 2 * repeat; ++i) {
            kt7::setMaxThreads(1 + i % 2);
            rows[i % 2].run([&] { kt7::photo::wienerStage(photo, pilot, noise, progress); });
        }
        print(refining ? "Wiener stage, second round" : "Wiener stage, first round", rows[0],
              rows[1]);
    }
    return 0;
} catch (const std::exception& e) {
    std::fprintf(stderr, "kt7_bench_photo: %s\n", e.what());
    return 1;
}
