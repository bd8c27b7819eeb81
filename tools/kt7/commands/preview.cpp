// kt7 preview: a photo as an editor shows it on a screen.
#include "tools/kt7/commands/commands.h"
#include "tools/kt7/errors.h"
#include "tools/kt7/files/imageFile.h"
#include "tools/kt7/files/inputBytes.h"
#include "tools/kt7/pictureCommand.h"
#include "tools/kt7/say.h"
#include "tools/kt7/screen.h"

#include <CLI/CLI.hpp>

#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>

namespace kt7::tool {
namespace {

using Profile = Bytes;

struct Options {
    PictureFiles files;
    std::string screenProfile;
    std::int32_t width = 0;
};

Profile readProfile(const std::string& path) {
    Profile bytes = readInput(path);
    if (bytes.empty())
        throw UserError(about(path, "is empty"));
    return bytes;
}

QxIccProfiles profilesOf(const Profile& source, const Profile& target) {
    return {source.empty() ? nullptr : source.data(), static_cast<std::int32_t>(source.size()),
            target.empty() ? nullptr : target.data(), static_cast<std::int32_t>(target.size())};
}

/// The call with its failures raised; false when the profiles can't be used.
bool fillScreen(const QxIccProfiles& profiles, const PSImage& image,
                std::vector<std::uint8_t>& screen, std::int32_t width, std::int32_t height,
                float factor) {
    const std::int32_t result =
        PSImageICC2QImage(&profiles, &image, screen.data(), 4 * width, width, height, factor);
    if (result < 0)
        throw std::bad_alloc();
    return result == 1;
}

bool isUsable(const Profile& screenProfile) {
    std::uint8_t grey[3] = {128, 128, 128};
    std::vector<std::uint8_t> pixel(4);
    return fillScreen(profilesOf({}, screenProfile), {1, grey, sizeof grey, 1, 1}, pixel, 1, 1,
                      1.0f);
}

struct Scale {
    float factor = 1.0f;
    std::int32_t width, height;
};

/// The factor is raised until rounding leaves it no column short.
Scale scaleTo(std::int32_t wanted, const Photo& photo) {
    const auto sideAt = [](std::int32_t side, float factor) {
        constexpr double most = std::numeric_limits<std::int32_t>::max();
        return static_cast<std::int32_t>(std::min(side * static_cast<double>(factor), most));
    };
    constexpr float smallest = 0.99f, largest = 1.01f;
    float factor = static_cast<float>(wanted) / static_cast<float>(photo.width);
    if (wanted == 0 || (factor >= smallest && factor <= largest))
        return {1.0f, photo.width, photo.height};
    while (sideAt(photo.width, factor) < wanted)
        factor = std::nextafter(factor, std::numeric_limits<float>::infinity());
    return {factor, wanted, sideAt(photo.height, factor)};
}

Photo draw(const Options& options, const Profile& target, const Photo& photo) {
    const auto [factor, width, height] = scaleTo(options.width, photo);
    if (height < 1)
        throw UserError(about(options.files.in, "has no row left at that width"));
    if (std::int64_t{4} * width > std::numeric_limits<std::int32_t>::max())
        throw UserError(about(options.files.in, "is too wide for a screen; choose a --width"));
    const std::size_t pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    std::vector<std::uint8_t> screen(4 * pixels);
    const Profile& source = photo.metadata.icc;
    LibraryImage carried(photo);
    if (!fillScreen(profilesOf(source, target), carried.view(), screen, width, height, factor)) {
        say(about(options.files.in, "its colour profile can't be used; taken as sRGB"));
        fillScreen(profilesOf({}, target), carried.view(), screen, width, height, factor);
    }
    std::vector<std::uint8_t> rgb(3 * pixels);
    for (std::size_t i = 0; i < pixels; ++i)
        for (std::size_t c = 0; c < 3; ++c)
            rgb[3 * i + c] = screen[4 * i + 2 - c];
    return pictureFrom(photo, width, height, rgb, target);
}

int run(const Options& options) {
    const Profile target =
        options.screenProfile.empty() ? Profile() : readProfile(options.screenProfile);
    if (!target.empty() && !isUsable(target))
        throw UserError(about(options.screenProfile, "is not the profile of an RGB screen"));
    makePicture(options.files, [&](const Photo& photo) { return draw(options, target, photo); });
    return exitOk;
}

} // namespace

Command addPreviewCommand(CLI::App& application) {
    CLI::App* command = application.add_subcommand(
        "preview", "Show a photo as an editor would: sized for a screen, in its colours");
    command->footer("Colours go from the profile in the photo (sRGB when it has none) to that of "
                    "the screen. The picture is made from four neighbouring pixels at a time, "
                    "quickly; below half the size, fine texture may shimmer.");
    const auto options = std::make_shared<Options>();
    addPictureFiles(*command, options->files);
    command
        ->add_option("--width", options->width,
                     "Width of the picture in pixels; the height follows. Default: as the photo, "
                     "which also stands for widths within 1 % of its own")
        ->check(CLI::Range(1, 32768))
        ->type_name("N");
    command
        ->add_option("--profile", options->screenProfile,
                     "ICC profile of the screen, which is also put into the picture. Default: sRGB")
        ->type_name("SCREEN.icc");
    return {command, [options] { return run(*options); }};
}

} // namespace kt7::tool
