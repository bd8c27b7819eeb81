// Filling planes and vectors with one value.
#pragma once

#include "prim/primtypes.h"

namespace kt7 {

PrimStatus primSet8uC1(std::uint8_t c, std::uint8_t* dst, std::int32_t dstStep, PrimSize size);
PrimStatus primSet16sC1(std::int16_t c, std::int16_t* dst, std::int32_t dstStep, PrimSize size);
PrimStatus primSet32fC1(float c, float* dst, std::int32_t dstStep, PrimSize size);
PrimStatus primSet32f(float c, float* dst, std::int32_t length);

} // namespace kt7
