// kt7 demo: a picture of our own, made noisy and denoised blind.
#include "tools/kt7/batch.h"
#include "tools/kt7/checks.h"
#include "tools/kt7/commands/commands.h"
#include "tools/kt7/defaults.h"
#include "tools/kt7/errors.h"
#include "tools/kt7/files/atomicOutput.h"
#include "tools/kt7/files/imageFile.h"
#include "tools/kt7/json.h"
#include "tools/kt7/photoLibrary.h"
#include "tools/kt7/pictureCommand.h"
#include "tools/kt7/progressBar.h"
#include "tools/kt7/say.h"
#include "tools/kt7/scene/demoScene.h"
#include "tools/kt7/screen.h"
#include "tools/kt7/stepTimes.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>

namespace kt7::tool {
namespace {

struct Options {
    std::string directory;
    std::string size =
        std::to_string(defaults::demoWidth) + "x" + std::to_string(defaults::demoHeight);
    Kt7PhotoSettings settings = defaultSettings();
    bool fast = false;
    bool json = false;
    bool force = false;
};

Photo photoOf(int width, int height, const Bytes& rgb) {
    Photo photo;
    photo.width = width;
    photo.height = height;
    photo.samples.assign(rgb.begin(), rgb.end());
    return photo;
}

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
    const Existing existing = options.force ? Existing::replace : Existing::refuse;
    for (const char* name : {"clean.png", "noisy.png", "denoised.png", "side-by-side.png"})
        checkWritable(pathOf(name), existing);

    StepTimes times;
    Photo clean, noisy;
    times.time("render", [&] {
        const DemoImage scene = renderDemoScene(width, height);
        clean = photoOf(width, height, toRgb8(scene));
        noisy = photoOf(width, height, toRgb8(addSensorNoise(scene, SensorNoise{})));
    });
    Photo photo = noisy;

    Kt7PhotoSettings settings = options.settings;
    if (options.fast)
        settings.quality = kt7PhotoFast;
    Kt7PhotoNoise noise{};
    {
        ProgressBar bar("demo", true);
        LentPhoto lent(photo);
        noise = times.time("estimate", [&] { return lent.measure([](double) {}); });
        settings.noise = &noise;
        times.time("denoise",
                   [&] { lent.denoise(settings, [&](double done) { bar.show(done); }); });
    }

    times.time("write", [&] {
        const auto write = [&](const Photo& picture, const char* name) {
            writePhoto(picture, pathOf(name), pngFormat, defaults::lossyQuality, existing);
        };
        write(clean, "clean.png");
        write(noisy, "noisy.png");
        write(photo, "denoised.png");
        write(onPaper({{&noisy, &photo, &clean}}), "side-by-side.png");
    });

    const Bytes truth = screenRgb(clean);
    const double before = psnr8(truth, screenRgb(noisy)), after = psnr8(truth, screenRgb(photo));
    const double rate = photo.megapixels() / std::max(times.of("denoise"), 1e-9);
    if (options.json)
        std::printf("%s\n", lineOf({{"width", width},
                                    {"height", height},
                                    {"quality", nameOfQuality(settings.quality)},
                                    {"measured", jsonOf(noise)},
                                    {"levels", jsonOf(levelsTakenOut(noise, settings))},
                                    {"psnrNoisy", before},
                                    {"psnrDenoised", after},
                                    {"seconds", times.json()},
                                    {"megapixelsPerSecond", rate}})
                                .c_str());
    else
        std::printf("PSNR %.2f dB noisy, %.2f dB denoised (%+.2f dB)\n"
                    "%.1f megapixels: %s; %.2f megapixels a second\n"
                    "see %s: noisy, denoised and clean\n",
                    before, after, after - before, photo.megapixels(), times.text().c_str(), rate,
                    shown(pathOf("side-by-side.png")).c_str());
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
    command->add_option("--strength,-s", options->settings.strength, "As in kt7 denoise")
        ->check(checkAmount)
        ->type_name("X")
        ->capture_default_str();
    command->add_flag("--fast", options->fast, "As in kt7 denoise");
    command->add_flag("--json", options->json, "Print one line of JSON");
    addForceOption(*command, options->force);
    return {command, [options] { return run(*options); }};
}

} // namespace kt7::tool
