#include "pmdll/src/decimate.h"

#include <algorithm>
#include <cstring>

#include "prim/rows.h"
#include "qxutils/parallel.h"
#include "qxutils/qxbase/hostFormat.h"

namespace kt7 {
namespace {

constexpr std::int32_t firstPixel = 16; // keeps borders and what resampling did there out
constexpr std::int32_t leastSide = 32;

std::uint16_t sampleOf(const unsigned char* bytes, std::uint8_t) {
    return static_cast<std::uint16_t>(*bytes * 128);
}

// Bytes of a host's row need not lie on even addresses.
std::uint16_t sampleOf(const unsigned char* bytes, std::uint16_t) {
    std::uint16_t sample;
    std::memcpy(&sample, bytes, sizeof sample);
    return std::min<std::uint16_t>(sample, sampleMax);
}

template <class Sample>
void pickRow(const unsigned char* src, std::int32_t factor, std::uint16_t* dst,
             std::int32_t width) {
    const std::ptrdiff_t stride = std::ptrdiff_t{3} * factor * static_cast<int>(sizeof(Sample));
    for (std::int32_t x = 0; x < width; ++x, src += stride, dst += 3)
        for (std::size_t c = 0; c < 3; ++c)
            dst[c] = sampleOf(src + c * sizeof(Sample), Sample{});
}

} // namespace

std::int32_t kt7DecPSImage(const PSImage* image, std::int32_t factor,
                           std::unique_ptr<std::uint16_t[]>* buffer, std::int32_t* stepBytes,
                           std::int32_t* width, std::int32_t* height) {
    const std::int32_t columns = (image->width - firstPixel) / factor - 1;
    const std::int32_t rows = (image->height - firstPixel) / factor - 1;
    if (columns < leastSide || rows < leastSide)
        return 0;
    const std::int32_t step = columns * 6 / 16 * 16 + 16;
    *buffer = std::make_unique_for_overwrite<std::uint16_t[]>(static_cast<std::size_t>(step) / 2 *
                                                              static_cast<std::size_t>(rows));
    *stepBytes = step;
    *width = columns;
    *height = rows;

    const auto* data = static_cast<const unsigned char*>(image->data);
    const bool bytes = image->format == formatRgb8;
    const auto pick = bytes ? &pickRow<std::uint8_t> : &pickRow<std::uint16_t>;
    const std::ptrdiff_t indent = firstPixel * 3 * (bytes ? 1 : 2);
    parallelRows(rows, [&](std::int32_t y) {
        pick(rowAt(data, image->rowBytes, firstPixel + factor * y) + indent, factor,
             rowAt(buffer->get(), step, y), columns);
    });
    return 1;
}

} // namespace kt7
