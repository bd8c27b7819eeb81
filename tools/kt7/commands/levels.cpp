// kt7 levels: one aspect of a photo, brightened or stretched until it shows.
#include "tools/kt7/commands/commands.h"
#include "tools/kt7/defaults.h"
#include "tools/kt7/errors.h"
#include "tools/kt7/files/imageFile.h"
#include "tools/kt7/pictureCommand.h"
#include "tools/kt7/screen.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iterator>
#include <memory>

namespace kt7::tool {
namespace {

struct Options {
    PictureFiles files;
    std::string view;
    std::int32_t target = 0;
    bool targetGiven = false;
};

enum class Family { picture, rgb, yCbCr, gDbDr };

struct View {
    const char* name;
    const char* help;
    Family family;
    std::int32_t mode;
    bool differences; // stretched round middle grey instead of brightened
};

constexpr View views[] = {
    {"picture", "the whole picture, brightened", Family::picture, 0, false},
    {"rgb", "the same, as the first of the channel views", Family::rgb, 0, false},
    {"red", "the red channel as grey", Family::rgb, 1, false},
    {"green", "the green channel as grey", Family::rgb, 2, false},
    {"blue", "the blue channel as grey, where most noise is", Family::rgb, 3, false},
    {"ycbcr", "the whole picture, as the first of the luma and chroma views", Family::yCbCr, 0,
     false},
    {"luma", "brightness without colour", Family::yCbCr, 1, false},
    {"chroma", "colour without brightness: colour noise and casts", Family::yCbCr, 2, true},
    {"cb", "the blue-yellow half of it as grey", Family::yCbCr, 3, true},
    {"cr", "the red-cyan half of it as grey", Family::yCbCr, 4, true},
    {"gdbdr", "the whole picture, as the first of the views of differences to green", Family::gDbDr,
     0, false},
    {"base", "green, which the differences refer to, as grey", Family::gDbDr, 1, false},
    {"differences", "blue and red minus green, in colour: fringes and demosaicing faults",
     Family::gDbDr, 2, true},
    {"db", "blue minus green as grey", Family::gDbDr, 3, true},
    {"dr", "red minus green as grey", Family::gDbDr, 4, true},
};

const View* viewNamed(const std::string& name) {
    const View* const found = std::find_if(std::begin(views), std::end(views),
                                           [&](const View& view) { return view.name == name; });
    return found == std::end(views) ? nullptr : found;
}

std::string checkView(const std::string& name) {
    if (viewNamed(name) != nullptr)
        return {};
    std::string known;
    for (const View& view : views)
        known += std::string(known.empty() ? "" : ", ") + view.name;
    return "\"" + name + "\" is not a view; there are " + known;
}

std::int32_t apply(const View& view, std::uint8_t* rgb, std::int32_t width, std::int32_t height,
                   std::int32_t target) {
    const std::int32_t rowBytes = 3 * width;
    switch (view.family) {
    case Family::picture:
        return qxPreviewAutoLevel(rgb, rowBytes, width, height, static_cast<float>(target));
    case Family::rgb:
        return qxRGBAutoLevel(rgb, rowBytes, width, height, view.mode, target);
    case Family::yCbCr:
        return qxRGB2YCbCrAutoLevel(rgb, rowBytes, width, height, view.mode, target);
    case Family::gDbDr:
        return qxRGB2GDbDrAutoLevel(rgb, rowBytes, width, height, view.mode, target);
    }
    return 0;
}

int run(const Options& options) {
    const View& view = *viewNamed(options.view);
    const std::int32_t usual =
        view.differences ? defaults::differenceTarget : defaults::brightnessTarget;
    makePicture(options.files, [&](const Photo& photo) {
        Bytes rgb = screenRgb(photo);
        const std::int32_t result = apply(view, rgb.data(), photo.width, photo.height,
                                          options.targetGiven ? options.target : usual);
        if (result != 1)
            throw UserError(about(options.files.in, "the view failed"));
        return pictureFrom(photo, photo.width, photo.height, rgb, photo.metadata.icc);
    });
    return exitOk;
}

} // namespace

Command addLevelsCommand(CLI::App& application) {
    CLI::App* command = application.add_subcommand(
        "levels", "Show one aspect of a photo - a channel, its luma, its colour - auto-levelled");
    std::string footer = "Views:\n";
    for (const View& view : views)
        footer += "  " + std::string(view.name) +
                  std::string(13 - std::string(view.name).size(), ' ') + view.help + "\n";
    footer += "Colour differences show middle grey where there is none.";
    command->footer(footer);
    const auto options = std::make_shared<Options>();
    addPictureFiles(*command, options->files);
    command->add_option("--view", options->view, "What to show; see below")
        ->required()
        ->check(checkView)
        ->type_name("NAME");
    command
        ->add_option("--target", options->target,
                     "Level from 0 to 255: the mean that a view is brightened to (never darkened), "
                     "or the mean distance from grey that differences are stretched to. 1 or less "
                     "leaves the level alone. Default: " +
                         std::to_string(defaults::brightnessTarget) + ", for differences " +
                         std::to_string(defaults::differenceTarget))
        ->check(CLI::Range(0, 255))
        ->type_name("N");
    return {command, [command, options] {
                options->targetGiven = command->count("--target") > 0;
                return run(*options);
            }};
}

} // namespace kt7::tool
