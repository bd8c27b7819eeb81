// kt7 demo: a picture of our own, made noisy and denoised blind.
#include "tools/kt7/checks.h"
#include "tools/kt7/commands/commands.h"
#include "tools/kt7/defaults.h"
#include "tools/kt7/errors.h"
#include "tools/kt7/files/atomicOutput.h"
#include "tools/kt7/files/imageFile.h"
#include "tools/kt7/json.h"
#include "tools/kt7/library.h"
#include "tools/kt7/progressBar.h"
#include "tools/kt7/scene/bitmapFont.h"
#include "tools/kt7/scene/demoScene.h"
#include "tools/kt7/signals.h"
#include "tools/kt7/stepTimes.h"
#include "tools/kt7/textureGuard.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string_view>

namespace kt7::tool {
namespace {

struct Options {
    std::string directory;
    std::string size =
        std::to_string(defaults::demoWidth) + "x" + std::to_string(defaults::demoHeight);
    float strength = defaults::strength;
    bool fast = false;
    bool json = false;
};

Photo photoOf(int width, int height, std::vector<std::uint8_t> rgb) {
    Photo photo;
    photo.width = width;
    photo.height = height;
    photo.rgb8 = std::move(rgb);
    return photo;
}

/// Noisy, denoised and clean beside each other, each under its name.
class Triptych {
  public:
    Triptych(int width, int height) : panel_(width), rows_(height) {
        photo_ = photoOf(3 * width + 2 * gap, height + header, {});
        photo_.rgb8.assign(static_cast<std::size_t>(photo_.pixels()) * 3, paper);
    }

    void place(int index, std::string_view name, const std::vector<std::uint8_t>& rgb) {
        const int left = index * (panel_ + gap);
        const auto rowSamples = static_cast<std::size_t>(panel_) * 3;
        for (int y = 0; y < rows_; ++y)
            std::copy_n(rgb.begin() + static_cast<std::ptrdiff_t>(rowSamples) * y, rowSamples,
                        at(left, y + header));
        for (int y = 0; y < glyphHeight * dot; ++y)
            for (int x = 0;
                 x < std::min(panel_ - gap, static_cast<int>(name.size()) * glyphAdvance * dot);
                 ++x)
                if (textDot(name, x / dot, y / dot))
                    std::fill_n(at(left + gap + x, y + (header - glyphHeight * dot) / 2), 3, ink);
    }

    const Photo& photo() const { return photo_; }

  private:
    static constexpr int gap = 8, header = 28, dot = 2;
    static constexpr std::uint8_t paper = 245, ink = 40;

    std::vector<std::uint8_t>::iterator at(int x, int y) {
        return photo_.rgb8.begin() + (std::ptrdiff_t{photo_.width} * y + x) * 3;
    }

    int panel_;
    int rows_;
    Photo photo_;
};

void makeDirectory(const std::string& directory) {
    std::error_code error;
    std::filesystem::create_directory(directory, error);
    if (!std::filesystem::is_directory(directory))
        throw UserError(about(
            directory,
            "cannot make the directory: " +
                (error ? error : std::make_error_code(std::errc::not_a_directory)).message()));
}

int run(const Options& options) {
    const Size size = parseSize(options.size);
    const int width = size.width, height = size.height;
    makeDirectory(options.directory);
    const auto pathOf = [&](const char* name) {
        return (std::filesystem::path(options.directory) / name).string();
    };
    checkWritable(pathOf("clean.png"));

    StepTimes times;
    std::vector<std::uint8_t> clean;
    Photo photo;
    times.time("render", [&] {
        const DemoImage scene = renderDemoScene(width, height);
        clean = toRgb8(scene);
        photo = photoOf(width, height, toRgb8(addSensorNoise(scene, SensorNoise{})));
    });
    throwIfCancelled();
    const std::vector<std::uint8_t> noisy = photo.rgb8;

    const NoiseEstimate estimate = times.time("estimate", [&] { return estimateNoise(photo); });
    DenoiseSettings settings;
    const NoiseFloor floor = times.time("guard", [&] { return noiseFloorOf(photo); });
    settings.levels = guardedLevels(estimate.levels, floor, options.strength);
    settings.levels.noiseGrain = defaults::noiseGrain;
    settings.fast = options.fast;
    {
        ProgressBar bar("demo", true);
        times.time("denoise",
                   [&] { denoise(photo, settings, [&](double done) { bar.show(done); }); });
    }

    times.time("write", [&] {
        constexpr int anyQuality = defaults::jpegQuality;
        writePhoto(photoOf(width, height, clean), pathOf("clean.png"), "png", anyQuality);
        writePhoto(photoOf(width, height, noisy), pathOf("noisy.png"), "png", anyQuality);
        writePhoto(photo, pathOf("denoised.png"), "png", anyQuality);
        Triptych triptych(width, height);
        triptych.place(0, "NOISY", noisy);
        triptych.place(1, "DENOISED", photo.rgb8);
        triptych.place(2, "CLEAN", clean);
        writePhoto(triptych.photo(), pathOf("side-by-side.png"), "png", anyQuality);
    });

    const double before = psnr8(clean, noisy), after = psnr8(clean, photo.rgb8);
    const double rate = photo.megapixels() / std::max(times.of("denoise"), 1e-9);
    if (options.json)
        std::printf("%s\n", JsonObject()
                                .add("width", std::int64_t{width})
                                .add("height", std::int64_t{height})
                                .add("guard", jsonOf(floor))
                                .add("levels", jsonOf(settings.levels))
                                .add("psnrNoisy", before)
                                .add("psnrDenoised", after)
                                .add("seconds", times.json())
                                .add("megapixelsPerSecond", rate)
                                .text()
                                .c_str());
    else
        std::printf("PSNR %.2f dB noisy, %.2f dB denoised (%+.2f dB)\n"
                    "%.1f megapixels: %s; %.2f megapixels a second\n"
                    "see %s\n",
                    before, after, after - before, photo.megapixels(), times.text().c_str(), rate,
                    pathOf("side-by-side.png").c_str());
    return exitOk;
}

} // namespace

Command addDemoCommand(CLI::App& application) {
    CLI::App* command = application.add_subcommand(
        "demo", "Draw a scene, add the noise of a sensor, denoise it blind and compare");
    command->footer("Writes clean.png, noisy.png, denoised.png and side-by-side.png and prints the "
                    "peak signal-to-noise ratio before and after. The scene and its noise are the "
                    "same every time.");
    const auto options = std::make_shared<Options>();
    command->add_option("directory", options->directory, "Where the pictures go; made if missing")
        ->required()
        ->type_name("OUTDIR");
    command->add_option("--size", options->size, "Size of the scene in pixels")
        ->check(checkSize)
        ->type_name("WxH")
        ->capture_default_str();
    command->add_option("--strength,-s", options->strength, "As in kt7 denoise")
        ->check(checkAmount)
        ->type_name("X")
        ->capture_default_str();
    command->add_flag("--fast", options->fast, "As in kt7 denoise");
    command->add_flag("--json", options->json, "Print one line of JSON");
    return {command, [options] { return run(*options); }};
}

} // namespace kt7::tool
