// Copies. Planes must not overlap.
#pragma once

#include "prim/primtypes.h"

namespace kt7 {

PrimStatus primCopy16sC1(const std::int16_t* src, std::int32_t srcStep, std::int16_t* dst,
                         std::int32_t dstStep, PrimSize size);

/// Moves the bits: NaN payloads and denormals arrive as they were.
PrimStatus primCopy32fC1(const float* src, std::int32_t srcStep, float* dst, std::int32_t dstStep,
                         PrimSize size);
PrimStatus primCopy32f(const float* src, float* dst, std::int32_t length);

} // namespace kt7
