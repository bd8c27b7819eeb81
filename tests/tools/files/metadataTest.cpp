// Metadata from every format into every other, as exiftool sees it.
#include "tools/kt7/files/metadata.h"
#include "tests/support/iccProfiles.h"
#include "tests/tools/files/samplePhoto.h"
#include "tests/tools/scratchFolder.h"
#include "tools/kt7/files/format.h"
#include "tools/kt7/json.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <exiv2/exiv2.hpp>
#include <map>
#include <random>

namespace kt7::tool {
namespace {

/// A tag, how exiftool calls it, and by which name its loss is said.
struct Tag {
    const char* option;
    const char* name;
    const char* loss;
};
constexpr Tag tags[] = {
    {"", "Make", "Exif"},
    {"-IFD0:Artist=Someone", "Artist", "Exif"},
    {"-ExifIFD:ExposureTime=1/50", "ExposureTime", "Exif"},
    {"-ExifIFD:UserComment=Said", "UserComment", "Exif"},
    {"-GPS:GPSLatitude=48.25", "GPSLatitude", "Exif"},
    {"-IFD0:XResolution=240", "XResolution", "Exif"},
    {"", "OwnerName", "Exif"}, // in the maker note
    {"-IFD0:YResolution=240", "YResolution", "Exif"},
    {"-XMP-dc:Title=Name", "Title", "XMP"},
    {"-IPTC:City=Town", "City", "IPTC"},
    {"-IPTC:Keywords=one", "Keywords", "IPTC"},
    {"-Comment=Hello", "Comment", "comments"},
    {"", "ProfileDescription", "its colour profile"},
};

void writeFile(const std::string& path, const Bytes& bytes) {
    writeBytes(path, {bytes.begin(), bytes.end()});
}

void exiftool(const std::string& arguments) {
    const std::string command = "exiftool -q -m -overwrite_original " + arguments;
    EXPECT_NE(std::system(command.c_str()), -1);
}

/// A block whose maker note counts its offsets from the block's start.
Bytes exifWithMakerNote() {
    Exiv2::ExifData data;
    data["Exif.Image.Make"] = "Canon";
    data["Exif.Image.Model"] = "Canon EOS 5D";
    data["Exif.Canon.OwnerName"] = "An owner with a name";
    data["Exif.Photo.ColorSpace"] = std::uint16_t{0xFFFF};
    data["Exif.Photo.PixelXDimension"] = std::uint32_t{9999};
    Exiv2::Blob blob;
    Exiv2::ExifParser::encode(blob, Exiv2::littleEndian, data);
    return blob;
}

std::map<std::string, Json> tagsOf(const ScratchFolder& folder) {
    const std::string list = folder / "tags";
    const std::string command = "exiftool -q -j '" + (folder / "") + "' > '" + list + "'";
    EXPECT_EQ(std::system(command.c_str()), 0);
    std::map<std::string, Json> files;
    for (const Json& file : Json::parse(bytesOf(list)))
        files[std::filesystem::path(file["SourceFile"].get<std::string>()).filename()] = file;
    return files;
}

TEST(Metadata, IsKeptOrItsLossIsSaidForEveryPairOfFormats) {
    ASSERT_EQ(std::system("exiftool -ver > /dev/null"), 0) << "exiftool is missing";
    const ScratchFolder folder;
    Photo photo = smoothPhoto();
    photo.metadata.exif = exifWithMakerNote();
    photo.metadata.orientation = 6;
    photo.metadata.icc = test::blockOf(cmsCreate_sRGBProfile());
    std::map<std::string, std::vector<std::string>> lost;
    writeFile(folder / "thumb.jpg", encode(smoothPhoto(16, 16), jpegFormat, 90).bytes);
    std::string options = "'-ThumbnailImage<=";
    options.append(folder / "thumb.jpg").append("' ");
    for (const Tag& tag : tags)
        if (tag.option[0] != 0)
            options.append("'").append(tag.option).append("' ");
    for (const FileFormat* from : fileFormats()) {
        const std::string source = folder / (std::string("source.") + from->name);
        writeFile(source, encode(photo, *from, 95).bytes);
        exiftool(options + source); // warns of what it can't put into the format
        const std::string bytes = bytesOf(source);
        const Photo read = decode(Bytes(bytes.begin(), bytes.end()));
        for (const FileFormat* to : fileFormats()) {
            const std::string name = std::string(from->name) + "-to." + to->name;
            Coded coded = encode(read, *to, 95);
            writeFile(folder / name, coded.bytes);
            lost[name] = coded.lost;
        }
    }
    const auto files = tagsOf(folder);
    for (const FileFormat* from : fileFormats()) {
        const Json& source = files.at(std::string("source.") + from->name);
        for (const FileFormat* to : fileFormats()) {
            const std::string name = std::string(from->name) + "-to." + to->name;
            const Json& file = files.at(name);
            SCOPED_TRACE(name + testing::PrintToString(lost[name]));
            for (const Tag& tag : tags) {
                const bool said = std::ranges::find(lost[name], tag.loss) != lost[name].end();
                // JPEG XL packs the profile, and exiftool doesn't look there.
                const bool hidden =
                    to->name == std::string("jxl") && tag.name == std::string("ProfileDescription");
                if (source.contains(tag.name) && !said && !hidden) {
                    EXPECT_EQ(file.value(tag.name, Json()), source[tag.name]) << tag.name;
                }
            }
            EXPECT_FALSE(file.contains("ThumbnailImage"));
            EXPECT_FALSE(file.contains("SRGBRendering"));
            // The coder of HEIC and AVIF turns the picture itself.
            const bool turned =
                std::string(from->name) == "heic" || std::string(from->name) == "avif";
            EXPECT_EQ(file.value("Orientation", ""),
                      turned ? "Horizontal (normal)" : "Rotate 90 CW");
            EXPECT_EQ(file.value("ExifImageWidth", 0), turned ? 48 : 64);
            EXPECT_EQ(file.value("OwnerName", ""), "An owner with a name");
        }
    }
}

/// A profile that ends the coder of JPEG XL, or that means another colour model than the picture,
/// goes into no file that it would break, and its loss is said.
TEST(Metadata, ADamagedProfileIsLeftOutOfEveryFormat) {
    const Bytes sound = test::blockOf(cmsCreate_sRGBProfile());
    const auto changed = [&](std::size_t at, std::initializer_list<std::uint8_t> with) {
        Bytes bytes = sound;
        std::ranges::copy(with, bytes.begin() + static_cast<std::ptrdiff_t>(at));
        return bytes;
    };
    const auto tag = [&](const char* name) {
        return static_cast<std::size_t>(std::ranges::search(sound, std::string_view(name)).begin() -
                                        sound.begin());
    };
    constexpr std::size_t space = 16, profileClass = 12, half = 300;
    std::vector<Bytes> damaged = {{1, 2, 3},
                                  {sound.begin(), sound.begin() + half},
                                  changed(space, {'C', 'M', 'Y', 'K'}),
                                  changed(profileClass, {'n', 'm', 'c', 'l'}),
                                  changed(tag("rTRC"), {'x'}),                 // without a curve
                                  changed(tag("rXYZ"), {'x'}),                 // without a primary
                                  changed(tag("para") + 12, {0x80, 0, 0, 0})}; // gamma of -32768
    const std::size_t certain = damaged.size();
    std::mt19937 random(7);
    for (int i = 0; i < 24; ++i) {
        damaged.push_back(sound);
        for (int times = 0; times < 3; ++times)
            damaged.back()[random() % sound.size()] = static_cast<std::uint8_t>(random());
    }
    for (std::size_t i = 0; i < damaged.size(); ++i)
        for (const FileFormat* format : fileFormats()) {
            if (i >= certain && format->name != std::string("jxl"))
                continue;
            Photo photo = smoothPhoto(16, 16);
            photo.metadata.icc = damaged[i];
            const Coded coded = encode(photo, *format, 90);
            const Photo again = decode(coded.bytes);
            const bool said = std::ranges::find(coded.lost, damagedProfile) != coded.lost.end();
            EXPECT_TRUE(!said || again.metadata.icc.empty()) << format->name << i;
            EXPECT_TRUE(said || i >= certain) << format->name << i;
        }
    Photo photo = samplePhoto(1, 8, false);
    photo.metadata.icc = sound; // of colours, to a grey picture
    for (const FileFormat* format : fileFormats()) {
        const Coded coded = encode(photo, *format, 90);
        EXPECT_EQ(coded.lost.empty(), !decode(coded.bytes).metadata.icc.empty()) << format->name;
    }
}

} // namespace
} // namespace kt7::tool
