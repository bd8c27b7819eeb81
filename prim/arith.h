// Arithmetic on planes and vectors.
//
// The integer operations take a signed scale: the exact result is divided by 2^scale to the nearest
// integer with ties to even (a scale below 0 multiplies by 2^-scale) and saturates.
#pragma once

#include "prim/primtypes.h"

namespace kt7 {

/// srcDst = srcDst + src.
PrimStatus primAdd16sC1I(const std::int16_t* src, std::int32_t srcStep, std::int16_t* srcDst,
                         std::int32_t srcDstStep, PrimSize size, std::int32_t scale);

/// srcDst = srcDst - src.
PrimStatus primSub16sC1I(const std::int16_t* src, std::int32_t srcStep, std::int16_t* srcDst,
                         std::int32_t srcDstStep, PrimSize size, std::int32_t scale);
PrimStatus primSub8uC1I(const std::uint8_t* src, std::int32_t srcStep, std::uint8_t* srcDst,
                        std::int32_t srcDstStep, PrimSize size, std::int32_t scale);

/// dst = src - c.
PrimStatus primSubC8uC1(const std::uint8_t* src, std::int32_t srcStep, std::uint8_t c,
                        std::uint8_t* dst, std::int32_t dstStep, PrimSize size, std::int32_t scale);
PrimStatus primSubC8uC1I(std::uint8_t c, std::uint8_t* srcDst, std::int32_t srcDstStep,
                         PrimSize size, std::int32_t scale);
PrimStatus primSubC16uC1(const std::uint16_t* src, std::int32_t srcStep, std::uint16_t c,
                         std::uint16_t* dst, std::int32_t dstStep, PrimSize size,
                         std::int32_t scale);

/// srcDst = srcDst * c; with C3 a factor for each of 3 interleaved channels.
PrimStatus primMulC8uC1I(std::uint8_t c, std::uint8_t* srcDst, std::int32_t srcDstStep,
                         PrimSize size, std::int32_t scale);
PrimStatus primMulC8uC3I(const std::uint8_t* c, std::uint8_t* srcDst, std::int32_t srcDstStep,
                         PrimSize size, std::int32_t scale);

/// srcDst = srcDst + c.
PrimStatus primAddC16uC1I(std::uint16_t c, std::uint16_t* srcDst, std::int32_t srcDstStep,
                          PrimSize size, std::int32_t scale);

/// srcDst = srcDst + src.
PrimStatus primAdd32fC1I(const float* src, std::int32_t srcStep, float* srcDst,
                         std::int32_t srcDstStep, PrimSize size);

/// srcDst = srcDst + c and srcDst * c.
PrimStatus primAddC32fC1I(float c, float* srcDst, std::int32_t srcDstStep, PrimSize size);
PrimStatus primMulC32fC1I(float c, float* srcDst, std::int32_t srcDstStep, PrimSize size);

/// Clears the sign bits.
PrimStatus primAbs32fC1I(float* srcDst, std::int32_t srcDstStep, PrimSize size);

/// Vector, srcDst = srcDst * c. A factor of 0 sets the vector to 0, whatever it holds.
PrimStatus primMulC32fI(float c, float* srcDst, std::int32_t length);

} // namespace kt7
