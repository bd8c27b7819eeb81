// kt7 denoise: photographs in, photographs out.
#include "tools/kt7/batch.h"
#include "tools/kt7/checks.h"
#include "tools/kt7/commands/commands.h"
#include "tools/kt7/defaults.h"
#include "tools/kt7/errors.h"
#include "tools/kt7/files/imageFile.h"
#include "tools/kt7/json.h"
#include "tools/kt7/photoLibrary.h"
#include "tools/kt7/progressBar.h"
#include "tools/kt7/say.h"
#include "tools/kt7/stepTimes.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <iterator>
#include <memory>
#include <optional>
#include <unistd.h>
#include <utility>

namespace kt7::tool {
namespace {

struct Options {
    BatchOptions batch;
    std::string noise, mask;
    std::optional<float> noiseGrain;
    std::vector<std::string> qualities; ///< of denoising and of the file
    bool fast = false;
    Kt7PhotoSettings settings = defaultSettings();
    int fileQuality = 0; ///< 0: not given
};

std::optional<std::int32_t> qualityNamed(const std::string& name) {
    for (const std::int32_t quality : {kt7PhotoFast, kt7PhotoFull, kt7PhotoBest})
        if (name == nameOfQuality(quality))
            return quality;
    return {};
}

/// 0 when it is no number from 1 to 100.
int fileQuality(const std::string& text) {
    int number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && rest == end && number >= 1 && number <= 100 ? number : 0;
}

std::string checkQuality(const std::string& text) {
    if (qualityNamed(text) || fileQuality(text) > 0)
        return {};
    return "\"" + text + "\" is neither fast, full or best nor a number from 1 to 100";
}

std::string checkFormat(const std::string& text) {
    if (formatNamed(text) != nullptr)
        return {};
    return "\"" + text + "\" is no format; known are " + formatNames();
}

/// Sorts out what --quality and --fast say. Raises UsageError when they contradict each other.
void chooseQualities(Options& options) {
    std::optional<std::int32_t> named;
    if (options.fast)
        named = kt7PhotoFast;
    for (const std::string& text : options.qualities) {
        const std::optional<std::int32_t> quality = qualityNamed(text);
        if (quality && named.value_or(*quality) != *quality)
            throw UsageError("--quality " + text + " contradicts " + nameOfQuality(*named) +
                             ", which is asked for too");
        if (quality)
            named = quality;
        else if (std::exchange(options.fileQuality, fileQuality(text)) != 0)
            throw UsageError("--quality is given two numbers");
    }
    if (named)
        options.settings.quality = *named;
}

/// What to take out of a photo: the noise that was measured, with the levels that were given.
Kt7PhotoNoise chosenNoise(const Options& options, Kt7PhotoNoise noise) {
    QxNoiseLevels levels = noise.levels;
    if (!options.noise.empty()) {
        const auto n = parseLevels(options.noise);
        levels = {n[0], n[1], n[2], n[3], n[4], n[5]};
    }
    levels.noiseGrain = options.noiseGrain.value_or(levels.noiseGrain);
    setLevels(noise, levels);
    return noise;
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
        print(options.batch, report);
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

void denoiseFile(const Options& options, Mask* mask, const Job& job, const std::string& label) {
    StepTimes times;
    checkWritable(job.out, options.batch.existing());
    Photo photo = times.time("read", [&] { return readPhoto(job.in); });
    const FileFormat& format = writableFormat(job.out, options.batch.placement.format, photo);
    Kt7PhotoSettings settings = options.settings;
    Kt7PhotoMask where{};
    if (mask != nullptr) {
        where = mask->forPhoto(photo);
        settings.mask = &where;
    }

    Kt7PhotoNoise measured{}, chosen{};
    {
        constexpr double measureShare = 0.15; // of the bar
        ProgressBar bar(label, !options.batch.quiet);
        LentPhoto lent(photo);
        measured = times.time("estimate", [&] {
            return lent.measure([&](double done) { bar.show(measureShare * done); });
        });
        chosen = chosenNoise(options, measured);
        settings.noise = &chosen;
        times.time("denoise", [&] {
            lent.denoise(settings, [&](double done) {
                bar.show(measureShare + (1.0 - measureShare) * done);
            });
        });
    }
    const Coded coded = times.time("write", [&] {
        return writePhoto(photo, job.out, format, options.fileQuality, options.batch.existing());
    });
    Json report = recordOf(job);
    report["width"] = photo.width;
    report["height"] = photo.height;
    report["bits"] = photo.bits;
    report["quality"] = nameOfQuality(settings.quality);
    report["measured"] = jsonOf(measured);
    report["written"] = whatIsWritten(coded);
    printSummary(options, job, photo, levelsTakenOut(chosen, settings), times, report);
}

void addFileOptions(CLI::App& command, Options& options) {
    addBatchOptions(command, options.batch);
    command
        .add_option("--format", options.batch.placement.format,
                    "File format of the output (png, jpg, tif, ...). Default: by the extension of "
                    "OUT; for standard output, the format of the input")
        ->check(checkFormat)
        ->type_name("NAME");
    command
        .add_option("--quality", options.qualities,
                    "A name chooses how the noise is removed (fast, full: slower, a little more "
                    "detail; best, the default: fast, then a filter with the measured spectrum of "
                    "the noise), a number from 1 to 100 the quality of a lossy file; may be given "
                    "twice to set both. Default of the number: a JPEG made from a JPEG keeps the "
                    "steps and the colour resolution that the camera chose, lossless files stay "
                    "lossless; " +
                        std::to_string(defaults::lossyQuality) + " for others")
        ->take_all()
        ->allow_extra_args(false)
        ->check(checkQuality)
        ->type_name("NAME|N");
    command.add_flag("--fast", options.fast, "The short way to --quality fast");
}

void addAmount(CLI::App& command, const char* name, float& value, const char* help) {
    command.add_option(name, value, help)
        ->check(checkAmount)
        ->type_name("X")
        ->capture_default_str();
}

void addNoiseOptions(CLI::App& command, Options& options) {
    Kt7PhotoSettings& settings = options.settings;
    addAmount(command, "--strength,-s", settings.strength,
              "How much of the noise to take out. Below 1 keeps more grain and texture, above 1 "
              "smooths more");
    addAmount(command, "--luma", settings.luma,
              "The same for brightness alone; multiplied with --strength");
    addAmount(command, "--colour", settings.colour,
              "The same for colour alone; multiplied with --strength");
    command
        .add_option("--blend", settings.amount,
                    "How much of the result to use: 1 is all of it, 0 the photo as it was")
        ->check(CLI::Range(0.0f, 1.0f))
        ->check(checkAmount)
        ->type_name("X")
        ->capture_default_str();
    command
        .add_option("--mask", options.mask,
                    "A grey picture of the photo's size that says where to denoise: white wholly, "
                    "black not at all. Pixel for pixel as the files hold them, before any "
                    "turning")
        ->type_name("FILE");
    command
        .add_option("--noise", options.noise,
                    "Noise levels instead of measured ones, six numbers with commas: luma in the "
                    "midtones, colour U, colour V, luma in the shadows, luma in the highlights "
                    "(standard deviations, where 1 is full scale), and the noise grain. See kt7 "
                    "estimate")
        ->check(checkLevels)
        ->type_name("M,U,V,S,H,G");
    command
        .add_option("--noise-grain", options.noiseGrain,
                    "How coarse the noise is, 0 to 2: 0 for the fine noise of a raw file, more for "
                    "the blotches that in-camera JPEGs leave. Default: as measured")
        ->check(CLI::Range(0.0f, 2.0f))
        ->check(checkAmount)
        ->type_name("G");
}

void addLookOptions(CLI::App& command, Kt7PhotoSettings& settings) {
    const auto amount = [&](const char* name, float& value, const char* help) {
        addAmount(command, name, value, help);
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
                chooseQualities(*options);
                std::unique_ptr<Mask> mask;
                if (!options->mask.empty())
                    mask = std::make_unique<Mask>(options->mask);
                return runBatch(*command, options->batch,
                                [&](const Job& job, const std::string& label) {
                                    denoiseFile(*options, mask.get(), job, label);
                                });
            }};
}

} // namespace kt7::tool
