// Copies and changes of layout. Planes must not overlap.
#pragma once

#include "prim/primtypes.h"

namespace kt7 {

PrimStatus primCopy16sC1(const std::int16_t* src, std::int32_t srcStep, std::int16_t* dst,
                         std::int32_t dstStep, PrimSize size);

/// Moves the bits: NaN payloads and denormals arrive as they were.
PrimStatus primCopy32fC1(const float* src, std::int32_t srcStep, float* dst, std::int32_t dstStep,
                         PrimSize size);
PrimStatus primCopy32f(const float* src, float* dst, std::int32_t length);

/// Copies the pixels whose mask sample is not 0.
PrimStatus primCopy32fC1M(const float* src, std::int32_t srcStep, float* dst, std::int32_t dstStep,
                          PrimSize size, const std::uint8_t* mask, std::int32_t maskStep);

/// Copy a plane into one channel of interleaved pixels of 3 or 4 samples; dst points at that
/// channel of the first pixel. The other channels stay.
PrimStatus primCopy8uC1C3(const std::uint8_t* src, std::int32_t srcStep, std::uint8_t* dst,
                          std::int32_t dstStep, PrimSize size);
PrimStatus primCopy8uC1C4(const std::uint8_t* src, std::int32_t srcStep, std::uint8_t* dst,
                          std::int32_t dstStep, PrimSize size);

/// dst(y, x) = src(x, y) with the size of src: dst is size.height wide.
PrimStatus primTranspose32fC1(const float* src, std::int32_t srcStep, float* dst,
                              std::int32_t dstStep, PrimSize size);

} // namespace kt7
