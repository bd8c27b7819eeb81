#include "photo/Planes.h"

#include <algorithm>

#include "include/kt7photo/kt7photo.h"
#include "photo/failure.h"

namespace kt7::photo {
namespace {

constexpr std::int32_t grid = 4;
constexpr std::int32_t leastSide = 24;

std::int32_t workedSide(std::int32_t side) {
    constexpr std::int32_t largest = 0x7fffff00; // stays a number when it is rounded up
    if (side > largest)
        fail(kt7PhotoNoMemory);
    return std::max(leastSide, (side + grid - 1) / grid * grid);
}

} // namespace

Planes::Planes(std::int32_t w, std::int32_t h, std::int32_t planeCount)
    : width(workedSide(w)), height(workedSide(h)), photoWidth(w), photoHeight(h),
      count(planeCount) {
    constexpr std::int64_t mostSamples = std::int64_t{1} << 40;
    if (std::int64_t{width} * height > mostSamples)
        fail(kt7PhotoNoMemory);
    for (std::int32_t plane = 0; plane < count; ++plane)
        planes_[static_cast<std::size_t>(plane)] =
            std::make_unique_for_overwrite<float[]>(offset(height));
}

void Planes::extend() {
    for (std::int32_t plane = 0; plane < count; ++plane) {
        for (std::int32_t y = 0; y < photoHeight; ++y) {
            float* samples = row(plane, y);
            for (std::int32_t x = photoWidth; x < width; ++x)
                samples[x] = samples[mirrored(x, photoWidth)];
        }
        for (std::int32_t y = photoHeight; y < height; ++y)
            std::copy_n(row(plane, mirrored(y, photoHeight)), width, row(plane, y));
    }
}

} // namespace kt7::photo
