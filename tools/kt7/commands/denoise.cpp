// kt7 denoise: photographs in, photographs out.
#include "tools/kt7/batch.h"
#include "tools/kt7/checks.h"
#include "tools/kt7/commands/commands.h"
#include "tools/kt7/defaults.h"
#include "tools/kt7/errors.h"
#include "tools/kt7/files/imageFile.h"
#include "tools/kt7/json.h"
#include "tools/kt7/library.h"
#include "tools/kt7/progressBar.h"
#include "tools/kt7/say.h"
#include "tools/kt7/stepTimes.h"
#include "tools/kt7/textureGuard.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <unistd.h>

namespace kt7::tool {
namespace {

struct Options {
    BatchOptions batch;
    std::string noise;
    float strength = defaults::strength;
    float noiseGrain = defaults::noiseGrain;
    bool noiseGrainGiven = false;
    bool guard = true;
    DenoiseSettings settings{.lumaSmooth = defaults::lumaSmooth,
                             .sharpen = defaults::sharpen,
                             .chromaMedian = defaults::chromaMedian,
                             .chromaSmooth = defaults::chromaSmooth,
                             .grain = defaults::grain};
    int quality = 0; ///< 0: not given
};

/// Levels for one photo: those of --noise, or measured ones.
QxNoiseLevels chooseLevels(const Options& options, const Job& job, const Photo& photo,
                           Json& report) {
    QxNoiseLevels levels{};
    if (!options.noise.empty()) {
        const auto n = parseLevels(options.noise);
        levels = scaled({n[0], n[1], n[2], n[3], n[4], n[5]}, options.strength, options.strength);
    } else {
        const BlindLevels blind =
            blindLevels(photo, {.strength = options.strength, .guard = options.guard});
        report["estimated"] = blind.estimate.measured;
        if (blind.estimate.measured)
            report["estimate"] = jsonOf(blind.estimate.levels);
        else
            say(about(job.in, std::string(notMeasured) + "; give levels with --noise"));
        if (options.guard)
            report["guard"] = jsonOf(blind.floor);
        levels = blind.levels;
    }
    if (options.noiseGrainGiven)
        levels.noiseGrain = options.noiseGrain;
    return levels;
}

Json whatIsWritten(const Coded& coded) {
    Json json{{"format", coded.format}, {"bits", coded.bits}, {"lossless", coded.lossless}};
    if (!coded.lossless)
        json["quality"] = coded.quality;
    if (!coded.subsampling.empty())
        json["subsampling"] = coded.subsampling;
    json["lost"] = coded.lost;
    return json;
}

void printSummary(const Options& options, const Job& job, const Photo& photo,
                  const QxNoiseLevels& levels, const StepTimes& times, Json& report) {
    const double seconds = times.of("denoise");
    const double rate = seconds > 0.0 ? photo.megapixels() / seconds : 0.0;
    if (options.batch.json) {
        report["levels"] = jsonOf(levels);
        report["seconds"] = times.json();
        report["megapixelsPerSecond"] = rate;
        // The picture itself may be on its way through standard output.
        std::fprintf(job.out == "-" ? stderr : stdout, "%s\n", lineOf(report).c_str());
        std::fflush(stdout);
    } else if (!options.batch.quiet && isatty(STDERR_FILENO)) {
        std::fprintf(stderr, "%s -> %s\n", shown(job.in).c_str(), shown(job.out).c_str());
        std::fprintf(stderr,
                     "  noise taken out: luma %.4f (shadows %.4f, highlights %.4f), "
                     "colour %.4f and %.4f\n",
                     static_cast<double>(levels.lumaMid), static_cast<double>(levels.lumaLow),
                     static_cast<double>(levels.lumaHigh), static_cast<double>(levels.chromaU),
                     static_cast<double>(levels.chromaV));
        std::fprintf(stderr, "  %.1f megapixels: %s; %.2f megapixels a second\n",
                     photo.megapixels(), times.text().c_str(), rate);
    }
}

void denoiseFile(const Options& options, const Job& job, const std::string& label) {
    StepTimes times;
    checkWritable(job.out, options.batch.existing());
    Photo photo = times.time("read", [&] { return readPhoto(job.in); });
    const FileFormat& format = writableFormat(job.out, options.batch.placement.format, photo);

    Json report{{"input", job.in},
                {"output", job.out},
                {"width", photo.width},
                {"height", photo.height},
                {"bits", photo.bits}};
    DenoiseSettings settings = options.settings;
    settings.levels =
        times.time("estimate", [&] { return chooseLevels(options, job, photo, report); });
    {
        ProgressBar bar(label, !options.batch.quiet);
        times.time("denoise",
                   [&] { removeNoise(photo, settings, [&](double done) { bar.show(done); }); });
    }
    const Coded coded = times.time("write", [&] {
        return writePhoto(photo, job.out, format, options.quality, options.batch.existing());
    });
    report["written"] = whatIsWritten(coded);
    printSummary(options, job, photo, settings.levels, times, report);
}

void addFileOptions(CLI::App& command, Options& options) {
    addBatchOptions(command, options.batch);
    command
        .add_option("--format", options.batch.placement.format,
                    "File format of the output (png, jpg, tif, ...). Default: by the extension of "
                    "OUT; for standard output, the format of the input")
        ->type_name("NAME");
    command
        .add_option("--quality", options.quality,
                    "Quality of lossy output. Default: a JPEG made from a JPEG keeps the steps and "
                    "the colour resolution that the camera chose, lossless files stay lossless; " +
                        std::to_string(defaults::lossyQuality) + " for others")
        ->check(CLI::Range(1, 100))
        ->type_name("N");
}

void addNoiseOptions(CLI::App& command, Options& options) {
    command
        .add_option("--strength,-s", options.strength,
                    "How much of the noise to take out: scales the noise levels. Below 1 keeps "
                    "more grain and texture, above 1 smooths more")
        ->check(checkAmount)
        ->type_name("X")
        ->capture_default_str();
    command
        .add_option("--noise", options.noise,
                    "Noise levels instead of measured ones, six numbers with commas: luma in the "
                    "midtones, colour U, colour V, luma in the shadows, luma in the highlights "
                    "(standard deviations, where 1 is full scale), and the noise grain. See kt7 "
                    "estimate")
        ->check(checkLevels)
        ->type_name("M,U,V,S,H,G");
    command.add_flag("!--no-guard", options.guard,
                     "Believe the measured noise as it is. By default it is held to what the "
                     "calmest places of the photo show, so that fine texture isn't taken for "
                     "noise, and raised less where the noise is fine");
    command
        .add_option("--noise-grain", options.noiseGrain,
                    "How coarse the noise is, 0 to 2: 0 for the fine noise of a raw file, more for "
                    "the blotches that in-camera JPEGs leave")
        ->check(CLI::Range(0.0f, 2.0f))
        ->check(checkAmount)
        ->type_name("G")
        ->capture_default_str();
    command.add_flag("--fast", options.settings.fast,
                     "Quick search: faster, a little less detail kept");
}

void addLookOptions(CLI::App& command, DenoiseSettings& settings) {
    const auto amount = [&](const char* name, float& value, const char* help) {
        command.add_option(name, value, help)
            ->check(checkAmount)
            ->type_name("X")
            ->capture_default_str();
    };
    amount("--luma-smooth", settings.lumaSmooth,
           "Smooth brightness within edges, 0.01 to 0.05. Careful: the pass limits luma at 0.64 of "
           "full scale (on the noise-normalised scale that the work is done in), so highlights "
           "come out darker and flat");
    amount("--chroma-smooth", settings.chromaSmooth,
           "Smooth colour within edges, 0.01 to 0.05: for blotches that are left");
    amount("--sharpen", settings.sharpen,
           "Take out blur by deconvolution: its radius in pixels less 0.3, usually 0.2 to 1");
    amount("--grain", settings.grain,
           "Add film grain to brightness: its standard deviation, where 1 is full scale, usually "
           "0.005 to 0.02");
    command
        .add_option("--chroma-median", settings.chromaMedian,
                    "Median on colour before anything else, against coloured single pixels: 0 off, "
                    "1 or 2 on")
        ->check(CLI::Range(0, 2))
        ->type_name("N")
        ->capture_default_str();
}

} // namespace

Command addDenoiseCommand(CLI::App& application) {
    CLI::App* command =
        application.add_subcommand("denoise", "Remove the noise from photos (grey or RGB, 8 or 16 "
                                              "bits, with or without alpha)");
    const auto options = std::make_shared<Options>();
    addFileOptions(*command, *options);
    addNoiseOptions(*command, *options);
    addLookOptions(*command, options->settings);
    return {command, [command, options] {
                options->noiseGrainGiven = command->count("--noise-grain") > 0;
                return runBatch(*command, options->batch,
                                [&](const Job& job, const std::string& label) {
                                    denoiseFile(*options, job, label);
                                });
            }};
}

} // namespace kt7::tool
