// A picture in memory, with all that has to go back into a file.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kt7::tool {

using Bytes = std::vector<std::uint8_t>;

/// Pixels per inch or centimetre; without a unit, the shape of a pixel.
struct Density {
    enum class Unit { none, inch, centimetre };
    double x = 0.0;
    double y = 0.0;
    Unit unit = Unit::inch;
};

/// A comment of JPEG, or a text of PNG under its keyword.
struct Text {
    std::string keyword;
    std::string text;
    std::string language = {};
};
inline constexpr const char* commentKeyword = "Comment";

/// What only a file of the same format can hold.
struct Extra {
    std::string name;
    Bytes bytes;
    bool said = true; ///< its loss is worth a warning
};

/// Blocks are kept as bytes: maker notes hold offsets that would break if anything moved.
struct Metadata {
    Bytes exif; ///< a TIFF stream
    Bytes xmp;  ///< the packet
    Bytes iptc; ///< records of IPTC-IIM
    Bytes icc;
    std::vector<Text> texts;
    std::optional<Density> density;
    std::uint16_t orientation = 1; ///< as Exif numbers it; pixels are not turned. 0: as Exif says
    std::vector<Extra> extras;
};

/// How a JPEG was coded: a JPEG made from it loses about as much.
struct JpegCoding {
    struct Component {
        int horizontal, vertical, table;
    };
    int colourSpace = 0; ///< libjpeg's number
    bool progressive = false;
    std::vector<Component> components;
    std::array<std::vector<std::uint16_t>, 4> tables; ///< 64 steps each, or empty
};

struct Coding {
    std::string format; ///< name of the file format, empty for a picture of our own
    bool lossless = true;
    JpegCoding jpeg;
    int tiffCompression = 0;
};

struct Photo {
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::int32_t channels = 3; ///< of colour: 1 is grey, 3 is RGB
    std::int32_t bits = 8;     ///< of a sample, 8..16; the largest sample is white

    std::vector<std::uint16_t> samples; ///< colour, interleaved
    std::vector<std::uint16_t> alpha;   ///< one a pixel, empty without alpha
    bool premultiplied = false;         ///< colours are already multiplied with alpha

    Metadata metadata;
    Coding coding;
    std::vector<std::string> remarks; ///< what reading left out, for one line

    std::int64_t pixels() const { return std::int64_t{width} * height; }
    double megapixels() const { return static_cast<double>(pixels()) * 1e-6; }
    std::uint32_t white() const { return (1u << bits) - 1; }
};

} // namespace kt7::tool
