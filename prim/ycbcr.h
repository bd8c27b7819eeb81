// Interleaved RGB to planes of Y, Cb, Cr and back: 8-bit studio range of ITU-R BT.601, where Y runs
// from 16 to 235 and Cb, Cr from 16 to 240 round 128.
#pragma once

#include "prim/primtypes.h"

namespace kt7 {

/// planes: three, in the order Y, Cb, Cr, with one step. In 16-bit fixed point, rounded.
PrimStatus primRGBToYCbCr8uC3P3(const std::uint8_t* rgb, std::int32_t rgbStep,
                                std::uint8_t* const planes[3], std::int32_t planeStep,
                                PrimSize size);

/// The way back; colours outside RGB saturate.
PrimStatus primYCbCrToRGB8uP3C3(const std::uint8_t* const planes[3], std::int32_t planeStep,
                                std::uint8_t* rgb, std::int32_t rgbStep, PrimSize size);

} // namespace kt7
