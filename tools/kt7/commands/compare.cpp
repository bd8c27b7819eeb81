// kt7 compare: a part of a photo before and after, at 1:1, for several strengths.
#include "tools/kt7/checks.h"
#include "tools/kt7/commands/commands.h"
#include "tools/kt7/errors.h"
#include "tools/kt7/files/imageFile.h"
#include "tools/kt7/photoLibrary.h"
#include "tools/kt7/pictureCommand.h"
#include "tools/kt7/progressBar.h"
#include "tools/kt7/say.h"
#include "tools/kt7/screen.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>

namespace kt7::tool {
namespace {

struct Options {
    PictureFiles files;
    std::string strengths = "0.5,1,1.5";
    std::string crop;
    float amplify = 4.0f;
    bool fast = false;
    bool json = false;
};

Crop middleOf(const Photo& photo) {
    constexpr std::int32_t usual = 320;
    const std::int32_t width = std::min(usual, photo.width), height = std::min(usual, photo.height);
    return {width, height, (photo.width - width) / 2, (photo.height - height) / 2};
}

Crop chosenCrop(const Options& options, const Photo& photo) {
    const Crop crop = options.crop.empty() ? middleOf(photo) : parseCrop(options.crop);
    if (std::int64_t{crop.left} + crop.width > photo.width ||
        std::int64_t{crop.top} + crop.height > photo.height)
        throw UserError(about(options.files.in, "ends before the crop " + options.crop +
                                                    " does: it has " + std::to_string(photo.width) +
                                                    "x" + std::to_string(photo.height) +
                                                    " pixels"));
    return crop;
}

/// With so much round it as the denoiser looks at.
Crop withSurroundings(const Crop& crop, const Photo& photo) {
    constexpr std::int32_t margin = 128;
    const std::int32_t left = std::max(crop.left - margin, 0), top = std::max(crop.top - margin, 0);
    return {std::min(crop.left + crop.width + margin, photo.width) - left,
            std::min(crop.top + crop.height + margin, photo.height) - top, left, top};
}

Photo cut(const Photo& photo, const Crop& crop) {
    Photo part;
    part.width = crop.width;
    part.height = crop.height;
    part.channels = photo.channels;
    part.bits = photo.bits;
    part.premultiplied = photo.premultiplied;
    const auto copyRows = [&](const std::vector<std::uint16_t>& from,
                              std::vector<std::uint16_t>& to, std::size_t channels) {
        for (std::int32_t y = crop.top; y < crop.top + crop.height && !from.empty(); ++y) {
            const auto begin =
                from.begin() +
                static_cast<std::ptrdiff_t>(channels * (static_cast<std::size_t>(y) *
                                                            static_cast<std::size_t>(photo.width) +
                                                        static_cast<std::size_t>(crop.left)));
            to.insert(to.end(), begin,
                      begin + static_cast<std::ptrdiff_t>(channels *
                                                          static_cast<std::size_t>(crop.width)));
        }
    };
    copyRows(photo.samples, part.samples, static_cast<std::size_t>(photo.channels));
    copyRows(photo.alpha, part.alpha, 1);
    return part;
}

/// What went, round mid grey.
Photo removed(const Photo& before, const Photo& after, float amplify) {
    Photo picture = after;
    const auto white = static_cast<float>(after.white());
    for (std::size_t i = 0; i < picture.samples.size(); ++i) {
        const float change =
            static_cast<float>(before.samples[i]) - static_cast<float>(after.samples[i]);
        picture.samples[i] = static_cast<std::uint16_t>(
            std::lround(std::clamp(0.5f * white + amplify * change, 0.0f, white)));
    }
    return picture;
}

void tell(const Options& options, const Crop& crop, const std::vector<float>& strengths,
          const char* quality) {
    Json columns = Json::array({"before"});
    std::string words = "before";
    for (const float strength : strengths) {
        columns.push_back(jsonNumber(strength));
        char text[32];
        std::snprintf(text, sizeof text, ", strength %g", static_cast<double>(strength));
        words += text;
    }
    // The picture itself may be on its way through standard output.
    std::FILE* const stream = options.files.out == "-" ? stderr : stdout;
    if (options.json)
        std::fprintf(stream, "%s\n",
                     lineOf({{"input", options.files.in},
                             {"output", options.files.out},
                             {"crop",
                              {{"width", crop.width},
                               {"height", crop.height},
                               {"left", crop.left},
                               {"top", crop.top}}},
                             {"quality", quality},
                             {"columns", columns},
                             {"rows", {"picture", "removed"}},
                             {"amplified", jsonNumber(options.amplify)}})
                         .c_str());
    else
        std::fprintf(stream,
                     "%s, %dx%d+%d+%d, quality %s, from the left: %s\n"
                     "below each what it took out, %g times as strong, around mid grey\n",
                     shown(options.files.out).c_str(), crop.width, crop.height, crop.left, crop.top,
                     quality, words.c_str(), static_cast<double>(options.amplify));
}

int run(const Options& options) {
    const std::vector<float> strengths = parseStrengths(options.strengths);
    Kt7PhotoSettings settings = defaultSettings();
    if (options.fast)
        settings.quality = kt7PhotoFast;
    Crop crop{};
    makePicture(options.files, [&](Photo& photo) {
        crop = chosenCrop(options, photo);
        ProgressBar bar("compare", true);
        const auto steps = static_cast<double>(strengths.size() + 1);
        Kt7PhotoNoise noise =
            LentPhoto(photo).measure([&](double done) { bar.show(done / steps); });
        settings.noise = &noise;
        const Crop surroundings = withSurroundings(crop, photo);
        const Crop inside{crop.width, crop.height, crop.left - surroundings.left,
                          crop.top - surroundings.top};
        const Photo before = cut(photo, crop);
        const auto panel = [&](const Photo& part) {
            return pictureFrom(part, part.width, part.height, screenRgb(part), {});
        };
        std::vector<Photo> pictures{panel(before)};
        for (std::size_t i = 0; i < strengths.size(); ++i) {
            Photo part = cut(photo, surroundings);
            settings.strength = strengths[i];
            LentPhoto(part).denoise(settings, [&](double done) {
                bar.show((static_cast<double>(i) + 1.0 + done) / steps);
            });
            const Photo after = cut(part, inside);
            pictures.push_back(panel(after));
            pictures.push_back(panel(removed(before, after, options.amplify)));
        }
        Panels rows{{&pictures[0]}, {nullptr}};
        for (std::size_t i = 1; i < pictures.size(); ++i)
            rows[(i + 1) % 2].push_back(&pictures[i]);
        Photo picture = onPaper(rows);
        if (photo.channels == 3) // a grey profile says nothing about the three channels of this
            picture.metadata.icc = photo.metadata.icc;
        return picture;
    });
    tell(options, crop, strengths, nameOfQuality(settings.quality));
    return exitOk;
}

} // namespace

Command addCompareCommand(CLI::App& application) {
    CLI::App* command = application.add_subcommand(
        "compare", "Show a part of a photo before and after, for several strengths");
    command->footer("From the left: the part as it was, then denoised with each strength; below "
                    "each, what that took out, amplified around mid grey. What shows there beyond "
                    "noise, such as edges, is detail that went too. The noise is that of the whole "
                    "photo.");
    const auto options = std::make_shared<Options>();
    addPictureFiles(*command, options->files);
    command->add_option("--strengths", options->strengths, "Up to eight of them, with commas")
        ->check(checkStrengths)
        ->type_name("X,X,...")
        ->capture_default_str();
    command
        ->add_option("--crop", options->crop,
                     "The part to show, in pixels as the file holds them, before any turning. "
                     "Default: 320x320 in the middle")
        ->check(checkCrop)
        ->type_name("WxH+X+Y");
    command
        ->add_option("--amplify", options->amplify, "How much stronger to show what was taken out")
        ->check(checkAmount)
        ->type_name("X")
        ->capture_default_str();
    command->add_flag("--fast", options->fast, "As in kt7 denoise");
    command->add_flag("--json", options->json, "Print one line of JSON");
    return {command, [options] { return run(*options); }};
}

} // namespace kt7::tool
