#include "qxenhlib/NormalisedPlanes.h"

#include <algorithm>
#include <limits>

#include "prim/threshold.h"
#include "qxutils/qxbase/QXRC.h"
#include "qxutils/qxbase/hostFormat.h"
#include "qxutils/qxbase/rgbYuv.h"

namespace kt7 {
namespace {

// Blocks near an edge need neighbours to match, and the tile processor leaves the outermost samples
// of a plane unwritten: 48 of margin on each side and more, up to a multiple of 16.
constexpr std::int32_t leastMargins = 2 * 48, sideUnit = 16;

// The deepest pyramid level is an eighth of a plane and must still hold a tile full of blocks.
constexpr std::int32_t leastSide = 256;

// Keeps the quotient defined for an image without noise, whose gain has nothing to act on.
constexpr float noNoise = 1e-13f;

std::int32_t paddedSide(std::int32_t side) {
    const std::int64_t padded =
        (std::int64_t{side} + leastMargins) / sideUnit * sideUnit + sideUnit;
    if (padded > std::numeric_limits<std::int32_t>::max())
        raise(noBufferStorage);
    return std::max(leastSide, static_cast<std::int32_t>(padded));
}

} // namespace

NormalisedPlanes::NormalisedPlanes(std::int32_t width, std::int32_t height,
                                   const QxNoiseLevels& levels)
    : luma(paddedSide(width), paddedSide(height)), chromaU(luma.width, luma.height),
      chromaV(luma.width, luma.height), levels_(levels) {
    curve_.setup(levels.lumaLow, levels.lumaMid, levels.lumaHigh, NoiseNormalize::usualClipFactor);
}

void NormalisedPlanes::fill(const PSImage& image) {
    GIMG<std::int16_t>* const planes[3] = {&luma, &chromaU, &chromaV};
    const NoiseNormalize* const tables[3] = {&curve_, &curve_, &curve_};
    if (image.format == formatRgb8) {
        qxRGBToYUV(static_cast<const std::uint8_t*>(image.data), image.rowBytes, image.width,
                   image.height, planes, tables);
        return;
    }
    auto* samples = static_cast<std::uint16_t*>(image.data);
    const std::uint16_t limits[3] = {sampleMax, sampleMax, sampleMax};
    primThresholdGT16uC3I(samples, image.rowBytes, {image.width, image.height}, limits);
    qxRGBToYUV(samples, image.rowBytes, image.width, image.height, planes, tables);
}

void NormalisedPlanes::store(const PSImage& image) const {
    const GIMG<std::int16_t>* const planes[3] = {&luma, &chromaU, &chromaV};
    const NoiseNormalize* const tables[3] = {&curve_, &curve_, &curve_};
    if (image.format == formatRgb8)
        qxYUVToRGB(planes, static_cast<std::uint8_t*>(image.data), image.rowBytes, image.width,
                   image.height, tables);
    else
        qxYUVToRGB(planes, static_cast<std::uint16_t*>(image.data), image.rowBytes, image.width,
                   image.height, tables);
}

PlaneNoise NormalisedPlanes::noise() const {
    const float gain = curve_.normalisedNoise / (noNoise + levels_.lumaMid);
    return {levels_.lumaMid * gain, levels_.chromaU * gain, levels_.chromaV * gain,
            levels_.noiseGrain};
}

} // namespace kt7
