// A photo in memory, and the file formats that the page reads and writes by itself.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/kt7/files/photo.h"

namespace kt7::web {

using tool::Bytes;

/// What can't be read or written, as a sentence for the page.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// What a PNG without a profile tells of its colours.
struct PngColours {
    std::optional<int> srgbIntent;
    std::optional<double> gamma;
    std::optional<std::array<double, 8>> primaries; // x and y of white, red, green and blue
    Bytes codePoints;

    bool differFromSrgb() const;
};

/// Resolution as JFIF tells it.
struct JfifDensity {
    std::uint8_t unit;
    std::uint16_t x, y;
};

struct Photo {
    std::int32_t width = 0, height = 0;
    std::int32_t channels = 0;    // grey, grey and alpha, RGB, RGB and alpha
    std::int32_t sampleBytes = 1; // 2: in the order of the machine
    std::int32_t orientation = 1; // as Exif numbers it; the samples are not turned
    Bytes samples;                // row by row, without gaps
    Bytes exif;                   // a TIFF stream, without a thumbnail
    Bytes icc;
    Bytes xmp;
    std::optional<tool::JpegCoding> coding; // of a JPEG
    std::optional<JfifDensity> density;
    PngColours colours;
    std::vector<std::string> lost; // what the file had and this has not, by name

    std::size_t rowBytes() const {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(channels * sampleBytes);
    }
    std::uint8_t* row(std::int32_t y) {
        return samples.data() + rowBytes() * static_cast<std::size_t>(y);
    }
    const std::uint8_t* row(std::int32_t y) const {
        return samples.data() + rowBytes() * static_cast<std::size_t>(y);
    }
    bool hasAlpha() const { return channels == 2 || channels == 4; }

    /// Makes room for the samples; raises Failure for what is larger than a page can bear.
    void allocate() {
        checkSize(width, height);
        samples.resize(rowBytes() * static_cast<std::size_t>(height));
    }
    static void checkSize(std::int64_t width, std::int64_t height) {
        constexpr std::int64_t mostPixels = 100'000'000;
        if (width < 1 || height < 1)
            throw Failure("The picture has no pixels.");
        if (width > mostPixels || height > mostPixels || width * height > mostPixels)
            throw Failure(
                "The picture has more than 100 megapixels, which is too large for a page.");
    }

    /// Takes an Exif block, however it begins, and from it the orientation.
    void takeExif(Bytes block);
    /// An Exif block that tells the orientation, where there is none yet.
    void makeExif();
};

/// All raise Failure, and std::bad_alloc.
Photo readJpeg(const Bytes& file);
Photo readPng(const Bytes& file);
Photo readTiff(const Bytes& file);

/// For a JPEG like the one that the photo comes from; other qualities keep the full resolution of
/// colour.
inline constexpr int likeSource = -1;

/// What can't go into the file is added to `lost`. Alpha is laid over white, 16 bits are rounded
/// to 8.
Bytes writeJpeg(const Photo& photo, int quality, std::vector<std::string>& lost);
/// effort 0..9, as zlib counts it
Bytes writePng(const Photo& photo, int effort, std::vector<std::string>& lost);

} // namespace kt7::web
