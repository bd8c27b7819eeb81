// End-to-end benchmark: whole calls through the shared library, the share of each stage, memory.
//
//   kt7_bench_call [--image PHOTO] [--megapixels 3 9 24] [--threads 2] [--repeat 3]
//
// The picture is the demo scene with sensor noise, or a photo repeated to the size asked for. Calls
// and the matching floor take turns, so that a machine that becomes slower does so for both.
#include <malloc.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/matchingFloor.h"
#include "bench/processUse.h"
#include "include/kt7lib/kt7lib.h"
#include "qxutils/parallel.h"
#include "tools/kt7/files/imageFile.h"
#include "tools/kt7/scene/demoScene.h"
#include "tools/kt7/screen.h"

namespace {

using namespace kt7::bench;
using Clock = std::chrono::steady_clock;

double secondsBetween(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration<double>(to - from).count();
}

struct Picture {
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::vector<std::uint8_t> rgb;
};

Picture demoPicture(double megapixels) {
    const double side = std::sqrt(megapixels * 1e6 / 1.5);
    const kt7::DemoImage clean =
        kt7::renderDemoScene(static_cast<int>(1.5 * side), static_cast<int>(side));
    return {clean.width, clean.height, kt7::toRgb8(kt7::addSensorNoise(clean, {}))};
}

Picture repeatedPhoto(const std::string& path, double megapixels) {
    const kt7::tool::Photo source = kt7::tool::readPhoto(path);
    const std::int32_t w = source.width, h = source.height;
    const std::vector<std::uint8_t> photo = kt7::tool::screenRgb(source);
    const double scale = std::sqrt(megapixels * 1e6 / (static_cast<double>(w) * h));
    Picture picture{static_cast<std::int32_t>(w * scale), static_cast<std::int32_t>(h * scale), {}};
    picture.rgb.resize(static_cast<std::size_t>(picture.width) *
                       static_cast<std::size_t>(picture.height) * 3);
    for (std::int32_t y = 0; y < picture.height; ++y)
        for (std::int32_t x = 0; x < picture.width; ++x)
            for (std::int32_t c = 0; c < 3; ++c)
                picture.rgb[(static_cast<std::size_t>(y) * static_cast<std::size_t>(picture.width) +
                             static_cast<std::size_t>(x)) *
                                3 +
                            static_cast<std::size_t>(c)] =
                    photo[(static_cast<std::size_t>(y % h) * static_cast<std::size_t>(w) +
                           static_cast<std::size_t>(x % w)) *
                              3 +
                          static_cast<std::size_t>(c)];
    return picture;
}

// Processor seconds of every thread of the process so far, by thread.
std::map<std::string, double> threadSeconds() {
    std::map<std::string, double> seconds;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream schedule(task.path() / "schedstat");
        double nanoseconds = 0.0;
        schedule >> nanoseconds;
        seconds[task.path().filename().string()] = 1e-9 * nanoseconds;
    }
    return seconds;
}

// Attributes the time between two progress reports to the stage that the second one belongs to.
struct StageClock {
    QxProgress record{0, 0, &StageClock::call, this, 0};
    Clock::time_point last = Clock::now();
    std::map<std::string, double> seconds;
    std::map<std::string, std::int64_t> peaks;
    std::int32_t unit = 0;
    std::int32_t previousBudget = 0;
    bool denoiserDone = false;

    static std::int32_t call(std::int32_t done, std::int32_t total, void* self) {
        static_cast<StageClock*>(self)->report(done, total);
        return 1;
    }

    void report(std::int32_t done, std::int32_t total) {
        const Clock::time_point now = Clock::now();
        const std::string stage = stageOf(done, total);
        seconds[stage] += secondsBetween(last, now);
        peaks[stage] = std::max(peaks[stage], peakMemory());
        resetPeakMemory();
        last = now;
    }

    std::string stageOf(std::int32_t done, std::int32_t total) {
        if (done == 2)
            return "0 entry";
        if (done == 1002)
            return "1 to planes";
        if (done == 1003) {
            unit = record.phaseBudget / 39;
            return "2 pyramids";
        }
        if (unit == 0)
            return "8 to pixels";
        const std::int32_t share = record.phaseBudget / unit;
        const bool again = share == 4 && (denoiserDone || previousBudget == 18);
        denoiserDone |= again;
        previousBudget = share;
        if (done == total && again)
            return "7 recompose, to pixels";
        switch (share) {
        case 1:
            return "3 residual";
        case 4:
            return again ? "7 recompose, to pixels" : "4 layer 2";
        case 12:
            return "5 layer 1";
        default:
            return "6 layer 0";
        }
    }
};

struct Options {
    float lumaSmooth = 0.0f, sharpen = 0.0f, chromaSmooth = 0.0f, grain = 0.0f;
    std::int32_t chromaMedianMode = 0, fullQuality = 1;
};

double median(std::vector<double> values) {
    std::ranges::sort(values);
    return 0.5 * (values[(values.size() - 1) / 2] + values[values.size() / 2]);
}

// The median ratio of what was measured in the same turn: the clock of a machine drifts by more
// from turn to turn than a call differs from its floor.
double medianRatio(const std::vector<double>& above, const std::vector<double>& below) {
    std::vector<double> ratios(above.size());
    std::ranges::transform(above, below, ratios.begin(), std::divides<>());
    return median(ratios);
}

// One way to call, and what its runs took; processor time is divided by the team, so that it
// compares with the floor.
struct Call {
    const char* name;
    Options options;
    std::int32_t threads;
    std::vector<double> walls = {}, processors = {};
    double bytesPerPixel = 0.0; // the most of all runs
};

void run(Call& call, const Picture& picture, const QxNoiseLevels& noise, bool stages) {
    const double megapixels = static_cast<double>(picture.width) * picture.height * 1e-6;
    const Options& options = call.options;
    kt7::setMaxThreads(call.threads);
    Picture work = picture;
    PSImage image{1, work.rgb.data(), work.width * 3, work.width, work.height};
    malloc_trim(0); // what earlier calls freed must not count as free room
    resetPeakMemory();
    const std::int64_t before = peakMemory();
    const double processorBefore = processorSeconds();
    std::map<std::string, double> threadsBefore = threadSeconds();
    StageClock clock;
    const Clock::time_point start = Clock::now();
    const std::int32_t result = qxDenoiseKt7(
        &clock.record, &image, &noise, options.lumaSmooth, options.sharpen,
        options.chromaMedianMode, options.chromaSmooth, options.grain, options.fullQuality);
    const double wall = secondsBetween(start, Clock::now());
    if (result != 1)
        throw std::runtime_error("qxDenoiseKt7 gave " + std::to_string(result));
    const double processor = (processorSeconds() - processorBefore) / call.threads;
    std::int64_t peak = peakMemory();
    for (const auto& [stage, bytes] : clock.peaks)
        peak = std::max(peak, bytes);
    const auto perPixel = [&](std::int64_t bytes) {
        return static_cast<double>(bytes - before) / (megapixels * 1e6);
    };
    call.walls.push_back(wall);
    call.processors.push_back(processor);
    call.bytesPerPixel = std::max(call.bytesPerPixel, perPixel(peak));
    std::printf(
        "%-22s %7.2f s  %6.3f s/MP  processor %7.2f s  %5.1f bytes/pixel beyond the image\n",
        call.name, wall, wall / megapixels, processor, perPixel(peak));
    std::printf("    busy seconds per thread:");
    for (const auto& [thread, seconds] : threadSeconds())
        if (const double busy = seconds - threadsBefore[thread]; busy > 0.01 * wall)
            std::printf(" %.2f", busy);
    std::printf("\n");
    if (stages)
        for (const auto& [stage, seconds] : clock.seconds)
            std::printf("    %-24s %7.2f s  %5.1f %%  %5.1f bytes/pixel\n", stage.c_str() + 2,
                        seconds, 100.0 * seconds / wall, perPixel(clock.peaks[stage]));
    std::fflush(stdout);
}

// Measures a size, prints its table, and gives the seconds per megapixel in full quality.
double measure(const Picture& picture, std::int32_t threads, int repeat) {
    std::printf("%d x %d pixels, %d threads\n", picture.width, picture.height, threads);
    const double megapixels = static_cast<double>(picture.width) * picture.height * 1e-6;
    kt7::setMaxThreads(threads);

    QxNoiseLevels noise{};
    PSImage image{1, const_cast<std::uint8_t*>(picture.rgb.data()), picture.width * 3,
                  picture.width, picture.height};
    qxKt7NoiseEst(&image, &noise);
    for (float* level : {&noise.lumaMid, &noise.lumaLow, &noise.lumaHigh})
        *level *= 2.5f;
    for (float* level : {&noise.chromaU, &noise.chromaV})
        *level *= 4.0f;

    const kt7::bench::MatchingFloor full(image, noise, false);
    const kt7::bench::MatchingFloor fast(image, noise, true);
    Call fullCall{"full quality", {}, threads};
    Call allCall{"full, all stages", {0.03f, 0.5f, 0.03f, 0.01f, 1, 1}, threads};
    Call fastCall{"fast", {0, 0, 0, 0, 0, 0}, threads};
    Call serialCall{"full, one thread", {}, 1};
    std::vector<double> fullFloors, fastFloors, estimates;
    const auto timeFloor = [](const char* name, const kt7::bench::MatchingFloor& floor,
                              std::vector<double>& times) {
        times.push_back(floor.seconds());
        std::printf("%-22s %7.2f s\n", name, times.back());
    };
    // What is compared stands side by side: the clock moves within a turn, too.
    for (int i = 0; i < repeat; ++i) {
        run(allCall, picture, noise, false);
        timeFloor("floor, full quality", full, fullFloors);
        run(fullCall, picture, noise, i == 0);
        if (threads > 1)
            run(serialCall, picture, noise, false);
        kt7::setMaxThreads(threads); // which a run sets, a floor takes
        timeFloor("floor, fast", fast, fastFloors);
        run(fastCall, picture, noise, i == 0);
        const Clock::time_point start = Clock::now();
        QxNoiseLevels unused{};
        qxKt7NoiseEst(&image, &unused);
        estimates.push_back(secondsBetween(start, Clock::now()));
    }

    const auto row = [&](const Call& call, const std::vector<double>& floors) {
        std::printf("%-22s %7.2f s  %6.3f s/MP  floor %7.2f s  call / floor by wall time %.3f, by "
                    "processor time %.3f  %5.1f bytes/pixel\n",
                    call.name, median(call.walls), median(call.walls) / megapixels, median(floors),
                    medianRatio(call.walls, floors), medianRatio(call.processors, floors),
                    call.bytesPerPixel);
    };
    std::printf("medians of %d at %.1f megapixels\n", repeat, megapixels);
    row(fullCall, fullFloors);
    row(fastCall, fastFloors);
    row(allCall, fullFloors);
    if (threads > 1)
        std::printf("one thread / %d threads: %.3f\n", threads,
                    medianRatio(serialCall.walls, fullCall.walls));
    std::printf("estimate %.1f ms, estimate / fast call %.4f\n\n", 1e3 * median(estimates),
                medianRatio(estimates, fastCall.walls));
    std::fflush(stdout);
    return median(fullCall.walls) / megapixels;
}

} // namespace

int main(int argc, char** argv) try {
    CLI::App app{"End-to-end benchmark of the denoise call"};
    std::string imagePath;
    std::vector<double> sizes = {3.0, 9.0, 24.0};
    std::int32_t threads = kt7::maxThreads();
    int repeat = 3;
    app.add_option("--image", imagePath,
                   "photo to repeat to the size; the demo scene when left out");
    app.add_option("--megapixels", sizes, "sizes of the picture")->check(CLI::PositiveNumber);
    app.add_option("--threads", threads, "threads of the team")->check(CLI::PositiveNumber);
    app.add_option("--repeat", repeat, "runs of each call; the median counts")
        ->check(CLI::PositiveNumber);
    CLI11_PARSE(app, argc, argv);

    std::vector<double> costs;
    costs.reserve(sizes.size());
    for (const double size : sizes)
        costs.push_back(
            measure(imagePath.empty() ? demoPicture(size) : repeatedPhoto(imagePath, size), threads,
                    repeat));
    if (sizes.size() > 1)
        std::printf("seconds per megapixel at %.0f / at %.0f megapixels: %.3f\n", sizes.back(),
                    sizes.front(), costs.back() / costs.front());
    return 0;
} catch (const std::exception& e) {
    std::fprintf(stderr, "kt7_bench_call: %s\n", e.what());
    return 1;
}
