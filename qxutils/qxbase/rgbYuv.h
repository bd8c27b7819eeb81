// Interleaved RGB of the host to padded, noise-normalised YUV planes and back.
#pragma once

#include <cstdint>

#include "qxutils/NoiseNormalize.h"
#include "qxutils/qxbase/IMG.h"

namespace kt7 {

/// Fills the three planes, margins included, from an image of width x height pixels whose rows lie
/// rowBytes apart. The image stands in the middle of the planes, which have one size; what passes
/// their size is left out. tables: one for each of R, G, B. 8-bit samples stand for sample * 128 of
/// the 15-bit scale; 16-bit samples above 32767 are taken as 32767. Plane 0 receives Y in 0..32767,
/// planes 1 and 2 the signed differences U and V. Returns 1.
std::int32_t qxRGBToYUV(const std::uint8_t* rgb, std::int32_t rowBytes, std::int32_t width,
                        std::int32_t height, GIMG<std::int16_t>* const planes[3],
                        const NoiseNormalize* const tables[3]);
std::int32_t qxRGBToYUV(const std::uint16_t* rgb, std::int32_t rowBytes, std::int32_t width,
                        std::int32_t height, GIMG<std::int16_t>* const planes[3],
                        const NoiseNormalize* const tables[3]);

/// Writes the image that stands in the middle of the planes to `rgb`, through the inverse tables.
/// Every step truncates: 8-bit samples are the 15-bit ones divided by 128. Returns 1.
std::int32_t qxYUVToRGB(const GIMG<std::int16_t>* const planes[3], std::uint8_t* rgb,
                        std::int32_t rowBytes, std::int32_t width, std::int32_t height,
                        const NoiseNormalize* const tables[3]);
std::int32_t qxYUVToRGB(const GIMG<std::int16_t>* const planes[3], std::uint16_t* rgb,
                        std::int32_t rowBytes, std::int32_t width, std::int32_t height,
                        const NoiseNormalize* const tables[3]);

} // namespace kt7
