// A photo in memory, and the two file formats that the page reads and writes by itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace kt7::web {

using Bytes = std::vector<std::uint8_t>;

/// What can't be read or written, as a sentence for the page.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Photo {
    std::int32_t width = 0, height = 0;
    std::int32_t channels = 0;    // grey, grey and alpha, RGB, RGB and alpha
    std::int32_t sampleBytes = 1; // 2: in the order of the machine
    Bytes samples;                // row by row, without gaps
    Bytes exif;                   // from the TIFF header on
    Bytes icc;
    Bytes xmp;

    std::size_t rowBytes() const {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(channels * sampleBytes);
    }
    std::uint8_t* row(std::int32_t y) {
        return samples.data() + rowBytes() * static_cast<std::size_t>(y);
    }
    const std::uint8_t* row(std::int32_t y) const {
        return samples.data() + rowBytes() * static_cast<std::size_t>(y);
    }
    /// Makes room for the samples; raises Failure for what is larger than a page can bear.
    void allocate() {
        constexpr std::int64_t mostPixels = 100'000'000;
        if (width < 1 || height < 1)
            throw Failure("The picture has no pixels.");
        if (std::int64_t{width} * height > mostPixels)
            throw Failure(
                "The picture has more than 100 megapixels, which is too large for a page.");
        samples.resize(rowBytes() * static_cast<std::size_t>(height));
    }
};

/// Both raise Failure, and std::bad_alloc.
Photo readJpeg(const Bytes& file);
Photo readPng(const Bytes& file);
/// Alpha is laid over white, 16 bits are rounded to 8.
Bytes writeJpeg(const Photo& photo, int quality);
Bytes writePng(const Photo& photo);

} // namespace kt7::web
