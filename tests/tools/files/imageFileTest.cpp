#include "tools/kt7/files/imageFile.h"
#include "tests/support/iccProfiles.h"
#include "tests/tools/scratchFolder.h"
#include "tools/kt7/errors.h"

#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

namespace kt7::tool {
namespace {

using OIIO::ImageInput;
using OIIO::ImageOutput;
using OIIO::ImageSpec;
using OIIO::TypeDesc;

constexpr int width = 37, height = 23;

/// A small profile that fits the channels.
std::string profileFor(int channels) {
    cmsToneCurve* const curve = cmsBuildGamma(nullptr, 1.8);
    const auto block = test::blockOf(channels < 3 ? cmsCreateGrayProfile(cmsD50_xyY(), curve)
                                                  : cmsCreate_sRGBProfile());
    cmsFreeToneCurve(curve);
    return {block.begin(), block.end()};
}

void addProfile(ImageSpec& spec, const std::string& profile) {
    spec.attribute("ICCProfile", TypeDesc(TypeDesc::UINT8, static_cast<int>(profile.size())),
                   profile.data());
}

/// Samples in file order on the scale of the type; alpha is often 0 over colour that is not.
std::vector<float> pattern(int channels) {
    std::vector<float> samples;
    for (int i = 0; i < width * height; ++i)
        for (int c = 0; c < channels; ++c)
            samples.push_back(c == channels - 1 && channels % 2 == 0
                                  ? static_cast<float>(i % 3) / 2.0f
                                  : static_cast<float>((i * (7 + 4 * c)) % 256) / 255.0f);
    return samples;
}

using Change = std::function<void(ImageSpec&)>;

void writeFile(const std::string& path, int channels, TypeDesc type,
               const std::vector<float>& samples, const Change& change = {}) {
    ImageSpec spec(width, height, channels, type);
    if (channels == 2) {
        spec.channelnames = {"Y", "A"};
        spec.alpha_channel = 1;
    }
    if (channels % 2 == 0)
        spec.attribute("oiio:UnassociatedAlpha", 1);
    if (change)
        change(spec);
    const auto out = ImageOutput::create(path);
    ASSERT_TRUE(out && out->open(path, spec)) << OIIO::geterror();
    ASSERT_TRUE(out->write_image(TypeDesc::FLOAT, samples.data()));
    ASSERT_TRUE(out->close());
}

struct FileContent {
    ImageSpec spec;
    std::vector<float> samples;
};

FileContent readFile(const std::string& path) {
    ImageSpec hints;
    hints.attribute("oiio:UnassociatedAlpha", 1);
    const auto in = ImageInput::open(path, &hints);
    if (!in) {
        ADD_FAILURE() << OIIO::geterror();
        return {};
    }
    FileContent content{in->spec(), {}};
    content.samples.resize(in->spec().image_pixels() *
                           static_cast<std::size_t>(in->spec().nchannels));
    EXPECT_TRUE(in->read_image(0, 0, 0, -1, TypeDesc::FLOAT, content.samples.data()));
    return content;
}

void convert(const std::string& in, const std::string& out, const std::string& format = "") {
    const Photo photo = readPhoto(in);
    writePhoto(photo, out, writableFormat(out, format, photo), 95);
}

struct Trip {
    const char* extension;
    int channels;
    TypeDesc type;
    float tolerance;
};

std::ostream& operator<<(std::ostream& out, const Trip& trip) {
    return out << trip.extension << ' ' << trip.channels << ' ' << trip.type.c_str();
}

class RoundTrip : public testing::TestWithParam<Trip> {};

TEST_P(RoundTrip, KeepsSamplesAlphaAndMetadata) {
    const Trip& trip = GetParam();
    const ScratchFolder folder;
    const std::string in = folder / (std::string("in.") + trip.extension);
    const std::string out = folder / (std::string("out.") + trip.extension);
    writeFile(in, trip.channels, trip.type, pattern(trip.channels), [](ImageSpec& spec) {
        spec.attribute("Orientation", 6);
        spec.attribute("Make", "Camera maker");
        addProfile(spec, profileFor(spec.nchannels));
    });
    const FileContent before = readFile(in);
    convert(in, out);
    const FileContent after = readFile(out);
    EXPECT_EQ(after.spec.nchannels, trip.channels);
    EXPECT_EQ(after.spec.format, before.spec.format);
    ASSERT_EQ(after.samples.size(), before.samples.size());
    for (std::size_t i = 0; i < before.samples.size(); ++i) {
        const bool alpha =
            trip.channels % 2 == 0 && i % static_cast<std::size_t>(trip.channels) ==
                                          static_cast<std::size_t>(trip.channels) - 1;
        ASSERT_NEAR(after.samples[i], before.samples[i], alpha ? 0.0f : trip.tolerance) << i;
    }
    EXPECT_EQ(after.spec.get_string_attribute("Make"), before.spec.get_string_attribute("Make"));
    EXPECT_EQ(after.spec.get_int_attribute("Orientation"),
              before.spec.get_int_attribute("Orientation"));
    const auto* kept = after.spec.find_attribute("ICCProfile");
    const auto* given = before.spec.find_attribute("ICCProfile");
    ASSERT_EQ(kept != nullptr, given != nullptr);
    if (given != nullptr) {
        EXPECT_EQ(std::string(static_cast<const char*>(kept->data()), kept->type().size()),
                  std::string(static_cast<const char*>(given->data()), given->type().size()));
    }
}

constexpr float exact = 1e-7f, step16 = 1.01f / 65535.0f;
INSTANTIATE_TEST_SUITE_P(
    Formats, RoundTrip,
    testing::Values(Trip{"png", 1, TypeDesc::UINT8, exact}, Trip{"png", 2, TypeDesc::UINT8, exact},
                    Trip{"png", 3, TypeDesc::UINT8, exact}, Trip{"png", 4, TypeDesc::UINT8, exact},
                    Trip{"png", 3, TypeDesc::UINT16, step16},
                    Trip{"png", 4, TypeDesc::UINT16, step16},
                    Trip{"tif", 1, TypeDesc::UINT16, step16},
                    Trip{"tif", 2, TypeDesc::UINT8, exact}, Trip{"tif", 3, TypeDesc::UINT8, exact},
                    Trip{"tif", 4, TypeDesc::UINT16, step16},
                    Trip{"tif", 3, TypeDesc::FLOAT, step16}, Trip{"exr", 3, TypeDesc::HALF, step16},
                    Trip{"jpg", 1, TypeDesc::UINT8, 0.04f}));

TEST(ImageFile, OrientationTravelsBetweenFormats) {
    const ScratchFolder folder;
    writeFile(folder / "0.tif", 3, TypeDesc::UINT8, pattern(3),
              [](ImageSpec& spec) { spec.attribute("Orientation", 8); });
    // Each from the one before.
    const char* chain[] = {"0.tif", "1.png", "2.png", "3.jpg", "4.jpg", "5.png", "6.tif"};
    for (std::size_t i = 1; i < std::size(chain); ++i) {
        convert(folder / chain[i - 1], folder / chain[i]);
        const FileContent content = readFile(folder / chain[i]);
        EXPECT_EQ(content.spec.get_int_attribute("Orientation"), 8) << chain[i];
        EXPECT_EQ(content.spec.width, width);
    }
}

TEST(ImageFile, AProfileThatTheFormatRefusesIsNoFailure) {
    const ScratchFolder folder;
    writeFile(folder / "in.jpg", 1, TypeDesc::UINT8, pattern(1),
              [](ImageSpec& spec) { addProfile(spec, profileFor(3)); });
    convert(folder / "in.jpg", folder / "out.png");
    EXPECT_EQ(readFile(folder / "out.png").samples.size(), pattern(1).size());
}

TEST(ImageFile, AssociatedAlphaIsLeftAlone) {
    const ScratchFolder folder;
    std::vector<float> samples = pattern(4);
    for (std::size_t i = 0; i < samples.size(); ++i)
        if (i % 4 != 3)
            samples[i] *= samples[i | 3];
    writeFile(folder / "in.tif", 4, TypeDesc::UINT8, samples,
              [](ImageSpec& spec) { spec.erase_attribute("oiio:UnassociatedAlpha"); });
    convert(folder / "in.tif", folder / "out.tif");
    const FileContent before = readFile(folder / "in.tif"), after = readFile(folder / "out.tif");
    EXPECT_EQ(before.samples, after.samples);
    EXPECT_EQ(after.spec.get_int_attribute("oiio:UnassociatedAlpha"), 0);
}

TEST(ImageFile, DepthAndAlphaFollowTheOutputFormat) {
    const ScratchFolder folder;
    writeFile(folder / "in.png", 4, TypeDesc::UINT16, pattern(4));
    convert(folder / "in.png", folder / "out.jpg");
    const FileContent jpeg = readFile(folder / "out.jpg");
    EXPECT_EQ(jpeg.spec.nchannels, 3);
    EXPECT_EQ(jpeg.spec.format, TypeDesc(TypeDesc::UINT8));
    EXPECT_EQ(jpeg.spec.get_string_attribute("jpeg:subsampling"), "4:4:4");
    writeFile(folder / "in.exr", 3, TypeDesc::FLOAT, pattern(3));
    convert(folder / "in.exr", folder / "out.png");
    const FileContent png = readFile(folder / "out.png");
    EXPECT_EQ(png.spec.format, TypeDesc(TypeDesc::UINT16));
    for (std::size_t i = 0; i < png.samples.size(); ++i)
        ASSERT_NEAR(png.samples[i], pattern(3)[i], 2.0f * step16);
}

std::string refusalOf(const std::string& path) {
    try {
        readPhoto(path);
    } catch (const UserError& error) {
        EXPECT_EQ(std::string(error.what()).find('\n'), std::string::npos);
        return error.what();
    }
    return "read without complaint";
}

TEST(ImageFile, RefusesWhatItCannotDenoise) {
    const ScratchFolder folder;
    writeFile(folder / "cmyk.tif", 3, TypeDesc::UINT8, pattern(3),
              [](ImageSpec& spec) { spec.attribute("tiff:ColorSpace", "CMYK"); });
    writeFile(folder / "five.tif", 5, TypeDesc::UINT8, pattern(5));
    writeFile(folder / "signed.tif", 3, TypeDesc::INT16, pattern(3));
    std::vector<float> bright = pattern(3);
    bright[100] = 2.5f;
    writeFile(folder / "bright.exr", 3, TypeDesc::FLOAT, bright);
    bright[100] = std::nanf("");
    writeFile(folder / "nan.exr", 3, TypeDesc::FLOAT, bright);
    writeBytes(folder / "text.png", "this is no picture");
    writeBytes(folder / "empty.jpg", "");
    const struct {
        const char* file;
        const char* complaint;
    } cases[] = {{"cmyk.tif", "CMYK"},       {"five.tif", "5 channels"},
                 {"signed.tif", "int16"},    {"bright.exr", "0 to 2.5"},
                 {"nan.exr", "not numbers"}, {"text.png", "read"},
                 {"empty.jpg", "read"},      {"missing.png", "No such file"}};
    for (const auto& [file, complaint] : cases)
        EXPECT_NE(refusalOf(folder / file).find(complaint), std::string::npos)
            << refusalOf(folder / file);
}

TEST(ImageFile, SaysInOneLineWhatAWholePageOfErrorsSays) {
    const ScratchFolder folder;
    writeFile(folder / "a.tif", 3, TypeDesc::UINT8, pattern(3),
              [](ImageSpec& spec) { spec.attribute("compression", "none"); });
    std::string bytes = bytesOf(folder / "a.tif");
    // The height, in the directory behind the pixels, grows past what the file holds.
    const std::string tag{"\x01\x01\x03\x00\x01\x00\x00\x00\x17", 9};
    const std::size_t at = bytes.find(tag);
    ASSERT_NE(at, std::string::npos);
    bytes[at + 9] = '\x10';
    writeBytes(folder / "a.tif", bytes);
    EXPECT_LT(refusalOf(folder / "a.tif").size(), 400u);
}

TEST(ImageFile, RefusesFilesCutAnywhere) {
    const ScratchFolder folder;
    for (const std::string name : {"a.jpg", "a.png", "a.tif", "a.exr"}) {
        writeFile(folder / name, 3, TypeDesc::UINT8, pattern(3));
        const std::string whole = bytesOf(folder / name);
        for (const std::size_t percent : {5u, 30u, 60u, 90u, 97u}) {
            writeBytes(folder / name, whole.substr(0, whole.size() * percent / 100));
            EXPECT_NE(refusalOf(folder / name), "read without complaint") << name << percent;
        }
    }
}

} // namespace
} // namespace kt7::tool
