#include "tools/kt7/files/imageFile.h"

#include "tools/kt7/errors.h"
#include "tools/kt7/files/atomicOutput.h"
#include "tools/kt7/files/memoryFile.h"
#include "tools/kt7/files/metadataBlocks.h"
#include "tools/kt7/files/quietStderr.h"
#include "tools/kt7/files/sampleScale.h"
#include "tools/kt7/files/trial.h"
#include "tools/kt7/signals.h"

#include <OpenImageIO/imageio.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <optional>
#include <string_view>
#include <unistd.h>

// As OpenImageIO/tiffutils.h declares it; that header wants libtiff's, which Debian's package of
// OpenImageIO doesn't bring along.
OIIO_NAMESPACE_BEGIN
OIIO_API void encode_exif(const ImageSpec& spec, std::vector<char>& blob, OIIO::endian endianreq);
OIIO_NAMESPACE_END

namespace kt7::tool {

struct FileTraits {
    OIIO::ImageSpec spec;
    std::string formatName;
    MetadataBlocks metadata;
};

namespace {

using OIIO::ImageInput;
using OIIO::ImageOutput;
using OIIO::ImageSpec;
using OIIO::TypeDesc;

/// The first of what may be many lines, one for each row of a damaged file, without the words that
/// are the same for every file.
std::string oneLine(std::string_view text) {
    constexpr std::string_view prefix = "Could not open file: ";
    if (text.starts_with(prefix))
        text.remove_prefix(prefix.size());
    text = text.substr(0, text.find('\n'));
    return text.empty() ? "unknown error" : std::string(text);
}

/// JPEG decoding goes on after damage and fills the rest with grey; the reader then says "done" and
/// leaves the decoder's warnings behind. All of them mean lost pixels, but for stray bytes between
/// segments, which some cameras write.
bool tellsOfDamage(const std::string& warnings) {
    std::string_view rest = warnings;
    while (!rest.empty()) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(rest.size(), line.size() + 1));
        if (line.find_first_not_of(' ') != std::string_view::npos &&
            line.find("extraneous bytes") == std::string_view::npos)
            return true;
    }
    return false;
}

bool isCmyk(const ImageSpec& spec) {
    for (const char* name :
         {"tiff:ColorSpace", "jpeg:ColorSpace", "psd:ColorMode", "oiio:ColorSpace"}) {
        const std::string value = spec.get_string_attribute(name);
        if (value == "CMYK" || value == "YCbCrK" || value == "YCCK")
            return true;
    }
    return spec.nchannels >= 4 && spec.channelnames[0] == "C" && spec.channelnames[3] == "K";
}

/// Whether the last channel is alpha; the GIF reader names it but marks a channel that is not
/// there.
bool hasAlpha(const ImageSpec& spec) {
    return spec.alpha_channel == spec.nchannels - 1 || spec.channelnames.back() == "A";
}

/// Raises when the file holds something else than the photos that we work on.
void checkKind(const std::string& path, const ImageSpec& spec) {
    const auto refuse = [&](const std::string& why) { throw UserError(about(path, why)); };
    if (isCmyk(spec))
        refuse("is a CMYK image; convert it to RGB first");
    if (spec.deep || spec.depth > 1)
        refuse("holds more than one sample a pixel (a deep or volume image)");
    if (spec.width < 1 || spec.height < 1)
        refuse("is empty");
    const bool alpha = hasAlpha(spec);
    const int colours = spec.nchannels - (alpha ? 1 : 0);
    if (colours != 1 && colours != 3)
        refuse("has " + std::to_string(spec.nchannels) +
               " channels; only grey and RGB are known, each with or without alpha");
    switch (spec.format.basetype) {
    case TypeDesc::UINT8:
    case TypeDesc::UINT16:
    case TypeDesc::HALF:
    case TypeDesc::FLOAT:
    case TypeDesc::DOUBLE:
        break;
    default:
        refuse(std::string("has samples of type ") + spec.format.c_str() +
               "; only 8 and 16 bits and floating point are known");
    }
    const std::int64_t sampleBytes = spec.format.basetype == TypeDesc::UINT8 ? 1 : 2;
    if (spec.width * sampleBytes * 3 > std::numeric_limits<std::int32_t>::max())
        refuse("is too wide (" + std::to_string(spec.width) + " pixels)");
    // A damaged header can ask for anything, and the system grants what it hasn't got.
    const double bytes = static_cast<double>(spec.width) * spec.height *
                         (spec.nchannels * static_cast<double>(spec.format.size()) +
                          3.0 * static_cast<double>(sampleBytes));
    if (bytes >
        static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGESIZE)))
        refuse("is too large for this machine's memory (" + std::to_string(spec.width) + " x " +
               std::to_string(spec.height) + " pixels)");
}

/// Takes the file's interleaved samples apart; `to` converts a colour sample, `toAlpha` one of
/// alpha.
template <class In, class Out, class To, class ToAlpha>
void split(Photo& photo, const std::vector<In>& samples, std::vector<Out>& rgb, To to,
           ToAlpha toAlpha) {
    const auto pixels = static_cast<std::size_t>(photo.pixels());
    const std::size_t colours = photo.grey ? 1 : 3;
    const std::size_t channels = samples.size() / pixels;
    rgb.resize(pixels * 3);
    if (channels > colours)
        photo.alpha.resize(pixels);
    const In* in = samples.data();
    Out* out = rgb.data();
    for (std::size_t i = 0; i < pixels; ++i, in += channels, out += 3) {
        out[0] = to(in[0]);
        out[1] = photo.grey ? out[0] : to(in[1]);
        out[2] = photo.grey ? out[0] : to(in[2]);
        if (channels > colours)
            photo.alpha[i] = toAlpha(in[colours]);
    }
}

void checkRange(const std::string& path, const std::vector<float>& samples) {
    float low = 0.0f, high = 1.0f;
    bool finite = true;
    for (const float v : samples) {
        finite = finite && std::isfinite(v);
        low = std::min(low, v);
        high = std::max(high, v);
    }
    if (finite && low >= 0.0f && high <= 1.0f)
        return;
    char text[96];
    std::snprintf(text, sizeof text, "has values outside 0..1 (%g to %g); scale them first",
                  static_cast<double>(low), static_cast<double>(high));
    throw UserError(about(path, finite ? text : "has values that are not numbers"));
}

template <class T>
std::vector<T> readSamples(const std::string& path, ImageInput& in, TypeDesc type) {
    const ImageSpec& spec = in.spec();
    std::vector<T> samples(static_cast<std::size_t>(spec.width) *
                           static_cast<std::size_t>(spec.height) *
                           static_cast<std::size_t>(spec.nchannels));
    bool read;
    {
        const QuietStderr quiet;
        read = in.read_image(0, 0, 0, spec.nchannels, type, samples.data());
    }
    throwIfCancelled();
    const std::string warnings = in.has_error() ? in.geterror() : std::string();
    if (!read || tellsOfDamage(warnings))
        throw UserError(about(path, "is damaged or cut short: " + oneLine(warnings)));
    return samples;
}

void readPixels(const std::string& path, ImageInput& in, Photo& photo) {
    const auto base = in.spec().format.basetype;
    if (base == TypeDesc::UINT8) {
        auto samples = readSamples<std::uint8_t>(path, in, TypeDesc::UINT8);
        if (in.spec().nchannels == 3)
            photo.rgb8 = std::move(samples);
        else
            split(
                photo, samples, photo.rgb8, [](std::uint8_t v) { return v; },
                [](std::uint8_t v) { return static_cast<float>(v) / 255.0f; });
        return;
    }
    photo.sixteen = true;
    if (base == TypeDesc::UINT16) {
        split(photo, readSamples<std::uint16_t>(path, in, TypeDesc::UINT16), photo.rgb15,
              scale16To15, [](std::uint16_t v) { return static_cast<float>(v) / 65535.0f; });
        return;
    }
    const auto samples = readSamples<float>(path, in, TypeDesc::FLOAT);
    checkRange(path, samples);
    split(photo, samples, photo.rgb15, scaleFloatTo15, [](float v) { return v; });
}

std::unique_ptr<ImageInput> openInput(const std::string& path, const std::string& realPath) {
    ImageSpec hints;
    hints.attribute("oiio:UnassociatedAlpha", 1);
    std::unique_ptr<ImageInput> in;
    bool opens;
    {
        const QuietStderr quiet;
        // OpenImageIO 2.4 reads far behind the end of a damaged colour profile. One such file must
        // not end the work on all the others.
        opens = survives([&] { ImageInput::open(realPath, &hints); });
        if (opens)
            in = ImageInput::open(realPath, &hints);
    }
    throwIfCancelled();
    if (!opens)
        throw UserError(about(path, "is damaged: reading its header fails"));
    // Fetched in any case: what nobody fetched is printed when the process ends.
    const std::string error = OIIO::has_error() ? OIIO::geterror() : std::string();
    if (in)
        return in;
    std::error_code status;
    if (path != "-" && access(path.c_str(), R_OK) != 0)
        throw UserError(about(path, "cannot read: " + std::generic_category().message(errno)));
    if (std::filesystem::is_directory(realPath, status))
        throw UserError(about(path, "is a directory"));
    if (error.find("could not find a format reader") != std::string::npos)
        throw UserError(about(path, "is not an image in a known format"));
    throw UserError(about(path, "cannot read: " + oneLine(error)));
}

void takeMetadata(const std::string& realPath, FileTraits& traits) {
    if (traits.formatName != "jpeg" && traits.formatName != "png")
        return;
    std::ifstream file(realPath, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    traits.metadata = metadataOf(bytes);
}

// Writing.

/// Metadata for the coded file; a source without blocks of its own gets its Exif for a PNG from the
/// attributes.
MetadataBlocks metadataFor(const FileTraits& traits, const std::string& formatName) {
    MetadataBlocks metadata = traits.metadata;
    if (formatName == "png" && metadata.container.empty()) {
        std::vector<char> exif;
        OIIO::encode_exif(traits.spec, exif, OIIO::endian::big);
        metadata.exif.assign(exif.begin(), exif.end());
    }
    return metadata;
}

/// Attributes that describe how the old file was coded, not what is in the picture.
void dropCodingAttributes(ImageSpec& spec, bool sameFormat) {
    for (const char* name :
         {"oiio:BitsPerSample", "oiio:subimages", "oiio:subimagename", "planarconfig", "tiff:.*",
          "jpeg:.*", "png:.*", "webp:.*", "gif:.*", "oiio:Movie", "oiio:LoopCount",
          "FramesPerSecond", "thumbnail.*", "textureformat", "openexr:.*", "oiio:SHA-1"})
        spec.erase_attribute(name);
    const std::string compression = spec.get_string_attribute("compression");
    // A lossless container stays lossless.
    if (!sameFormat || compression == "jpeg" || compression == "lossyjpeg" ||
        compression.starts_with("dwa") || compression.starts_with("b44"))
        spec.erase_attribute("compression");
}

ImageSpec outputSpec(const Photo& photo, const ImageOutput& out, int quality) {
    const std::string_view format = out.format_name();
    ImageSpec spec = photo.traits ? photo.traits->spec : ImageSpec();
    const bool sameFormat = photo.traits && photo.traits->formatName == format;
    const bool alpha = !photo.alpha.empty() && (out.supports("alpha") || format == "tiff");
    const bool unassociated = spec.get_int_attribute("oiio:UnassociatedAlpha") != 0;

    ImageSpec coded(photo.width, photo.height, (photo.grey ? 1 : 3) + (alpha ? 1 : 0),
                    photo.sixteen ? TypeDesc::UINT16 : TypeDesc::UINT8);
    const auto base = spec.format.basetype;
    if (photo.traits && base != TypeDesc::UINT16 && photo.sixteen &&
        (format == "openexr" || format == "tiff"))
        coded.set_format(TypeDesc(static_cast<TypeDesc::BASETYPE>(base)));
    coded.default_channel_names();
    coded.alpha_channel = alpha ? coded.nchannels - 1 : -1;
    if (alpha)
        coded.channelnames.back() = std::string(1, 'A');
    coded.extra_attribs = spec.extra_attribs;
    dropCodingAttributes(coded, sameFormat);
    coded.erase_attribute("oiio:UnassociatedAlpha");
    if (alpha && unassociated)
        coded.attribute("oiio:UnassociatedAlpha", 1);
    if (sameFormat) { // placement on a larger canvas, in formats that know it
        coded.x = spec.x;
        coded.y = spec.y;
        coded.full_x = spec.full_x;
        coded.full_y = spec.full_y;
        coded.full_width = spec.full_width;
        coded.full_height = spec.full_height;
    }
    if (format == "jpeg") {
        coded.attribute("Compression", "jpeg:" + std::to_string(quality));
        coded.attribute("jpeg:subsampling", "4:4:4");
    } else if (format == "webp") {
        coded.attribute("Compression", "webp:" + std::to_string(quality));
    } else if (format == "tiff" && coded.get_string_attribute("compression").empty()) {
        coded.attribute("compression", "zip");
    }
    return coded;
}

/// Puts the file's interleaved samples together.
template <class Out, class In, class To, class ToAlpha>
std::vector<Out> join(const Photo& photo, int channels, const std::vector<In>& rgb, To to,
                      ToAlpha toAlpha) {
    const auto pixels = static_cast<std::size_t>(photo.pixels());
    const std::size_t colours = photo.grey ? 1 : 3;
    const auto stride = static_cast<std::size_t>(channels);
    std::vector<Out> samples(pixels * stride);
    for (std::size_t i = 0; i < pixels; ++i) {
        // The denoiser keeps grey grey but for the rounding of its colour matrix; green carries
        // most of luma and thus the least of that rounding.
        if (photo.grey)
            samples[i * stride] = to(rgb[i * 3 + 1]);
        else
            for (std::size_t c = 0; c < 3; ++c)
                samples[i * stride + c] = to(rgb[i * 3 + c]);
        if (stride > colours)
            samples[i * stride + colours] = toAlpha(photo.alpha[i]);
    }
    return samples;
}

bool writePixels(const Photo& photo, ImageOutput& out) {
    const int channels = out.spec().nchannels;
    const auto send = [&](const TypeDesc& type, const auto& samples) {
        return out.write_image(type, samples.data());
    };
    const auto alphaTo8 = [](float a) { return static_cast<std::uint8_t>(a * 255.0f + 0.5f); };
    const auto alphaTo16 = [](float a) { return static_cast<std::uint16_t>(a * 65535.0f + 0.5f); };
    const auto same = [](float a) { return a; };
    switch (out.spec().format.basetype) {
    case TypeDesc::UINT8:
        return send(
            TypeDesc::UINT8,
            photo.sixteen
                ? join<std::uint8_t>(photo, channels, photo.rgb15, scale15To8, alphaTo8)
                : join<std::uint8_t>(
                      photo, channels, photo.rgb8, [](std::uint8_t v) { return v; }, alphaTo8));
    case TypeDesc::UINT16:
        return send(TypeDesc::UINT16,
                    photo.sixteen
                        ? join<std::uint16_t>(photo, channels, photo.rgb15, scale15To16, alphaTo16)
                        : join<std::uint16_t>(
                              photo, channels, photo.rgb8,
                              [](std::uint8_t v) { return static_cast<std::uint16_t>(v * 257); },
                              alphaTo16));
    default:
        return send(TypeDesc::FLOAT,
                    photo.sixteen
                        ? join<float>(
                              photo, channels, photo.rgb15,
                              [](std::uint16_t v) { return static_cast<float>(v) / 32768.0f; },
                              same)
                        : join<float>(
                              photo, channels, photo.rgb8,
                              [](std::uint8_t v) { return static_cast<float>(v) / 255.0f; }, same));
    }
}

} // namespace

Photo readPhoto(const std::string& path) {
    std::optional<MemoryFile> standardInput;
    if (path == "-")
        standardInput.emplace().fillFrom(STDIN_FILENO);
    const std::string realPath = standardInput ? standardInput->path() : path;
    const auto in = openInput(path, realPath);
    auto traits = std::make_shared<FileTraits>(FileTraits{in->spec(), in->format_name(), {}});
    checkKind(path, in->spec());

    Photo photo;
    photo.width = in->spec().width;
    photo.height = in->spec().height;
    photo.grey = in->spec().nchannels < 3;
    readPixels(path, *in, photo);
    bool more;
    {
        const QuietStderr quiet;
        more = in->seek_subimage(1, 0);
        in->close();
    }
    takeMetadata(realPath, *traits);
    if (!traits->metadata.complete)
        throw UserError(about(path, "is damaged or cut short: its end is missing"));
    if (more)
        std::fprintf(stderr, "kt7: %s\n",
                     about(path, "holds several images; only the first is used").c_str());
    photo.traits = std::move(traits);
    return photo;
}

std::vector<std::uint8_t> colourProfile(const Photo& photo) {
    const auto* profile = photo.traits->spec.find_attribute("ICCProfile");
    if (profile == nullptr || profile->type().size() < 1)
        return {};
    const auto* bytes = static_cast<const std::uint8_t*>(profile->data());
    return {bytes, bytes + profile->type().size()};
}

Photo pictureFrom(const Photo& photo, std::int32_t width, std::int32_t height,
                  std::vector<std::uint8_t> rgb, const std::vector<std::uint8_t>& profile) {
    auto traits = std::make_shared<FileTraits>();
    traits->spec.attribute("Orientation", photo.traits->spec.get_int_attribute("Orientation", 1));
    if (!profile.empty())
        traits->spec.attribute("ICCProfile",
                               TypeDesc(TypeDesc::UINT8, static_cast<int>(profile.size())),
                               profile.data());
    Photo picture;
    picture.width = width;
    picture.height = height;
    picture.rgb8 = std::move(rgb);
    picture.traits = std::move(traits);
    return picture;
}

std::string writableFormat(const std::string& path, const std::string& format, const Photo& photo) {
    std::string name = format;
    if (name.empty() && path != "-" && std::filesystem::path(path).has_extension())
        name = std::filesystem::path(path).extension().string().substr(1);
    const bool given = !name.empty();
    if (!given)
        name = photo.traits ? photo.traits->formatName : "png";
    const auto out = ImageOutput::create(std::string("a.").append(name));
    const std::string ignored = OIIO::geterror();
    if (!out)
        throw UserError(about(path, given ? "no picture can be written as \"" + name + "\""
                                          : "the format " + name +
                                                " can't be written; choose one with --format"));
    return out->format_name();
}

void writePhoto(const Photo& photo, const std::string& path, const std::string& formatName,
                int quality) {
    // Coders differ in how they answer a full disk, so they write to memory and the bytes go to the
    // disk in one place.
    MemoryFile coded;
    const auto out = ImageOutput::create(formatName);
    if (!out)
        throw UserError(about(path, oneLine(OIIO::geterror())));
    ImageSpec spec = outputSpec(photo, *out, quality);
    bool done, profileDropped = false;
    {
        const QuietStderr quiet;
        done = out->open(coded.path(), spec);
        // libpng takes no profile of another colour model, and some cameras' grey pictures have
        // one.
        if (!done && spec.find_attribute("ICCProfile") != nullptr) {
            const std::string ignored = out->geterror();
            spec.erase_attribute("ICCProfile");
            coded.replaceContents({});
            done = out->open(coded.path(), spec);
            profileDropped = done;
        }
        done = done && writePixels(photo, *out);
        done = out->close() && done;
    }
    throwIfCancelled();
    if (!done)
        throw UserError(
            about(path, "cannot write as " + formatName + ": " + oneLine(out->geterror())));
    if (profileDropped)
        std::fprintf(
            stderr, "kt7: %s\n",
            about(path, "its colour profile doesn't fit " + formatName + "; it was left out")
                .c_str());
    if (!photo.alpha.empty() && out->spec().alpha_channel < 0)
        std::fprintf(stderr, "kt7: %s\n",
                     about(path, formatName + " holds no alpha; it was left out").c_str());
    if (photo.traits && (formatName == "jpeg" || formatName == "png"))
        coded.replaceContents(
            withMetadata(coded.contents(), metadataFor(*photo.traits, formatName)));
    publish(coded, path);
}

} // namespace kt7::tool
