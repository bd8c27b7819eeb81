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

/// srcDst = srcDst op src, pixel by pixel.
PrimStatus primAdd32fC1I(const float* src, std::int32_t srcStep, float* srcDst,
                         std::int32_t srcDstStep, PrimSize size);
PrimStatus primSub32fC1I(const float* src, std::int32_t srcStep, float* srcDst,
                         std::int32_t srcDstStep, PrimSize size);
PrimStatus primMul32fC1I(const float* src, std::int32_t srcStep, float* srcDst,
                         std::int32_t srcDstStep, PrimSize size);

/// srcDst = srcDst / src. A zero divisor of either sign gives infinity with the sign of the
/// dividend, or NaN for 0 / 0, and primDivByZero for the call.
PrimStatus primDiv32fC1I(const float* src, std::int32_t srcStep, float* srcDst,
                         std::int32_t srcDstStep, PrimSize size);

/// dst = src2 - src1: the first operand is taken from the second.
PrimStatus primSub32fC1(const float* src1, std::int32_t src1Step, const float* src2,
                        std::int32_t src2Step, float* dst, std::int32_t dstStep, PrimSize size);

/// With a constant, in place and from plane to plane.
PrimStatus primAddC32fC1I(float c, float* srcDst, std::int32_t srcDstStep, PrimSize size);
PrimStatus primSubC32fC1I(float c, float* srcDst, std::int32_t srcDstStep, PrimSize size);
PrimStatus primMulC32fC1I(float c, float* srcDst, std::int32_t srcDstStep, PrimSize size);
PrimStatus primMulC32fC1(const float* src, std::int32_t srcStep, float c, float* dst,
                         std::int32_t dstStep, PrimSize size);
PrimStatus primSubC32fC1(const float* src, std::int32_t srcStep, float c, float* dst,
                         std::int32_t dstStep, PrimSize size);

/// Clears the sign bits.
PrimStatus primAbs32fC1I(float* srcDst, std::int32_t srcDstStep, PrimSize size);

/// Vectors.
PrimStatus primAdd32fI(const float* src, float* srcDst, std::int32_t length);
PrimStatus primDiv32fI(const float* src, float* srcDst, std::int32_t length);

/// A factor of 0 sets the vector to 0, whatever it holds.
PrimStatus primMulC32fI(float c, float* srcDst, std::int32_t length);

/// dst = sqrt(re^2 + im^2).
PrimStatus primMagnitude32f(const float* re, const float* im, float* dst, std::int32_t length);

} // namespace kt7
