#include "qxutils/qxbase/rgbYuv.h"

#include <algorithm>

#include "prim/colourRows.h"
#include "qxutils/parallel.h"
#include "qxutils/qxbase/borders.h"

namespace kt7 {
namespace {

/// Where an image lies in planes that may be larger than it.
struct Placement {
    Placement(const GIMG<std::int16_t>& plane, std::int32_t imageWidth, std::int32_t imageHeight)
        : width(std::min(imageWidth, plane.width)), height(std::min(imageHeight, plane.height)),
          left((plane.width - width) / 2), top((plane.height - height) / 2) {}

    std::int32_t width;
    std::int32_t height;
    std::int32_t left;
    std::int32_t top;
};

template <class Sample>
using ForwardRow = void (*)(const Sample*, const std::int16_t* const*, std::int16_t*, std::int16_t*,
                            std::int16_t*, std::int32_t);
template <class Sample>
using BackwardRow = void (*)(const std::int16_t*, const std::int16_t*, const std::int16_t*,
                             const std::int16_t* const*, Sample*, std::int32_t);

template <class Sample>
void fillPlanes(ForwardRow<Sample> convertRow, const std::int16_t* const tables[3],
                const Sample* rgb, std::int32_t rowBytes, std::int32_t width, std::int32_t height,
                GIMG<std::int16_t>* const planes[3]) {
    const GIMG<std::int16_t>& luma = *planes[0];
    const Placement at(luma, width, height);
    parallelItems(at.height, [&](std::int32_t y) {
        convertRow(rowAt(rgb, rowBytes, y), tables, planes[0]->at(at.left, at.top + y),
                   planes[1]->at(at.left, at.top + y), planes[2]->at(at.left, at.top + y),
                   at.width);
    });
    for (std::int32_t c = 0; c < 3; ++c)
        extendBorders(*planes[c], at.left, at.top, luma.width - at.width - at.left,
                      luma.height - at.height - at.top);
}

template <class Sample>
void fillImage(BackwardRow<Sample> convertRow, const NoiseNormalize* const tables[3],
               const GIMG<std::int16_t>* const planes[3], Sample* rgb, std::int32_t rowBytes,
               std::int32_t width, std::int32_t height) {
    const Placement at(*planes[0], width, height);
    const std::int16_t* const inverse[3] = {tables[0]->inv.get(), tables[1]->inv.get(),
                                            tables[2]->inv.get()};
    parallelItems(at.height, [&](std::int32_t y) {
        convertRow(planes[0]->at(at.left, at.top + y), planes[1]->at(at.left, at.top + y),
                   planes[2]->at(at.left, at.top + y), inverse, rowAt(rgb, rowBytes, y), at.width);
    });
}

} // namespace

std::int32_t qxRGBToYUV(const std::uint8_t* rgb, std::int32_t rowBytes, std::int32_t width,
                        std::int32_t height, GIMG<std::int16_t>* const planes[3],
                        const NoiseNormalize* const tables[3]) {
    // The 256 entries that 8-bit samples can reach lie 256 bytes apart, which fills a quarter of
    // the first-level cache's sets; packed they fit easily.
    std::int16_t packed[3][256];
    for (std::int32_t c = 0; c < 3; ++c)
        for (std::int32_t i = 0; i < 256; ++i)
            packed[c][i] = tables[c]->fwd[i * 128];
    const std::int16_t* const entries[3] = {packed[0], packed[1], packed[2]};
    fillPlanes(&rgb8ToYuvRow, entries, rgb, rowBytes, width, height, planes);
    return 1;
}

std::int32_t qxRGBToYUV(const std::uint16_t* rgb, std::int32_t rowBytes, std::int32_t width,
                        std::int32_t height, GIMG<std::int16_t>* const planes[3],
                        const NoiseNormalize* const tables[3]) {
    const std::int16_t* const entries[3] = {tables[0]->fwd.get(), tables[1]->fwd.get(),
                                            tables[2]->fwd.get()};
    fillPlanes(&rgb16ToYuvRow, entries, rgb, rowBytes, width, height, planes);
    return 1;
}

std::int32_t qxYUVToRGB(const GIMG<std::int16_t>* const planes[3], std::uint8_t* rgb,
                        std::int32_t rowBytes, std::int32_t width, std::int32_t height,
                        const NoiseNormalize* const tables[3]) {
    fillImage(&yuvToRgb8Row, tables, planes, rgb, rowBytes, width, height);
    return 1;
}

std::int32_t qxYUVToRGB(const GIMG<std::int16_t>* const planes[3], std::uint16_t* rgb,
                        std::int32_t rowBytes, std::int32_t width, std::int32_t height,
                        const NoiseNormalize* const tables[3]) {
    fillImage(&yuvToRgb16Row, tables, planes, rgb, rowBytes, width, height);
    return 1;
}

} // namespace kt7
