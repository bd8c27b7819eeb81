// Operations whose work fused kernels do in the library. They say it plainly, one step at a time
// and the same on every CPU, are what the tests of those kernels compare with, and are no part of
// the library: only tests link them.
#pragma once

#include "prim/primtypes.h"

namespace kt7 {

// Of gridPositions and blurQuotientRow (prim/gridRows.h).

/// Widening.
PrimStatus primConvert8u32fC1(const std::uint8_t* src, std::int32_t srcStep, float* dst,
                              std::int32_t dstStep, PrimSize size);
/// srcDst = srcDst - src.
PrimStatus primSub32fC1I(const float* src, std::int32_t srcStep, float* srcDst,
                         std::int32_t srcDstStep, PrimSize size);
/// dst = src * c.
PrimStatus primMulC32fC1(const float* src, std::int32_t srcStep, float c, float* dst,
                         std::int32_t dstStep, PrimSize size);
/// Vector, srcDst = srcDst / src. A zero divisor of either sign gives infinity with the sign of the
/// dividend, or NaN for 0 / 0, and primDivByZero for the call.
PrimStatus primDiv32fI(const float* src, float* srcDst, std::int32_t length);

// Of normaliseRow (prim/groupFilter.h).

/// Vector, srcDst = srcDst + src.
PrimStatus primAdd32fI(const float* src, float* srcDst, std::int32_t length);
/// As primDiv32fI.
PrimStatus primDiv32fC1I(const float* src, std::int32_t srcStep, float* srcDst,
                         std::int32_t srcDstStep, PrimSize size);

// Of filterGroups (prim/groupFilter.h).

/// Orthonormal DCT-II of 64 contiguous floats, row after row, in place, and its inverse (Ahmed,
/// Natarajan and Rao 1974). A constant block of value b has the single coefficient 8 b, element 0.
PrimStatus primDCT8x8Fwd32fC1I(float* block);
PrimStatus primDCT8x8Inv32fC1I(float* block);

// Of gainRows and the shrinking rows (prim/waveletRows.h).

/// Vector, dst = sqrt(re^2 + im^2).
PrimStatus primMagnitude32f(const float* re, const float* im, float* dst, std::int32_t length);
/// srcDst = srcDst - c.
PrimStatus primSubC32fC1I(float c, float* srcDst, std::int32_t srcDstStep, PrimSize size);
/// Relations of primCompare32fC1.
enum PrimRelation : std::int32_t {
    primLess = 0,
    primLessEqual = 1,
    primEqual = 2,
    primGreaterEqual = 3,
    primGreater = 4,
};
/// dst = 255 where `src1 relation src2` holds, else 0. primBadArg for an unknown relation.
PrimStatus primCompare32fC1(const float* src1, std::int32_t src1Step, const float* src2,
                            std::int32_t src2Step, std::uint8_t* dst, std::int32_t dstStep,
                            PrimSize size, std::int32_t relation);
/// Copies the pixels whose mask sample is not 0.
PrimStatus primCopy32fC1M(const float* src, std::int32_t srcStep, float* dst, std::int32_t dstStep,
                          PrimSize size, const std::uint8_t* mask, std::int32_t maskStep);
/// srcDst = srcDst * src.
PrimStatus primMul32fC1I(const float* src, std::int32_t srcStep, float* srcDst,
                         std::int32_t srcDstStep, PrimSize size);

// Of weightedSums (prim/waveletRows.h), which filters columns as it does rows.

/// dst(y, x) = src(x, y) with the size of src: dst is size.height wide. Planes must not overlap.
PrimStatus primTranspose32fC1(const float* src, std::int32_t srcStep, float* dst,
                              std::int32_t dstStep, PrimSize size);

// Of reducePyramidRow and expandPyramidRow (prim/pyramidRows.h).

/// Convolution as primFilter32fC1, on integers: the sum is exact in 64 bits, is divided by
/// `divisor` to the nearest integer with ties to even, and saturates. primBadStep as there,
/// primZeroDivisor for a divisor of 0.
PrimStatus primFilter16sC1(const std::int16_t* src, std::int32_t srcStep, std::int16_t* dst,
                           std::int32_t dstStep, PrimSize size, const std::int32_t* kernel,
                           PrimSize kernelSize, PrimPoint anchor, std::int32_t divisor);

// Of toScreen8Row and greyToRgbRow (prim/screenRows.h).

/// Copy a plane into one channel of interleaved pixels of 3 or 4 samples; dst points at that
/// channel of the first pixel. The other channels stay.
PrimStatus primCopy8uC1C3(const std::uint8_t* src, std::int32_t srcStep, std::uint8_t* dst,
                          std::int32_t dstStep, PrimSize size);
PrimStatus primCopy8uC1C4(const std::uint8_t* src, std::int32_t srcStep, std::uint8_t* dst,
                          std::int32_t dstStep, PrimSize size);
/// Sets one channel of 4-channel pixels; dst points at that channel of the first pixel.
PrimStatus primSetChannel8uC4(std::uint8_t c, std::uint8_t* dst, std::int32_t dstStep,
                              PrimSize size);

// Of ResizePlan::rowsToScreen8u (prim/resize.h).

/// Resizes srcRect of a plane as ResizePlan lays it out. Pixels of dst beyond the result stay.
PrimStatus primResize8uC1(const std::uint8_t* src, PrimSize srcSize, std::int32_t srcStep,
                          PrimRect srcRect, std::uint8_t* dst, std::int32_t dstStep,
                          PrimSize dstSize, double xFactor, double yFactor,
                          std::int32_t interpolation);

// Of primSum8uC1 (prim/stats.h).

PrimStatus primMean8uC1(const std::uint8_t* src, std::int32_t srcStep, PrimSize size, double* mean);

} // namespace kt7
