// Conversions between sample types. Values that the target can't hold saturate.
#pragma once

#include "prim/primtypes.h"

namespace kt7 {

/// Roundings of the float to integer conversions.
enum PrimRounding : std::int32_t {
    primTruncate = 0, ///< toward zero
    primNearest = 1,  ///< to nearest, ties to the even neighbour
};

PrimStatus primConvert16s32fC1(const std::int16_t* src, std::int32_t srcStep, float* dst,
                               std::int32_t dstStep, PrimSize size);
PrimStatus primConvert8u16uC1(const std::uint8_t* src, std::int32_t srcStep, std::uint16_t* dst,
                              std::int32_t dstStep, PrimSize size);
PrimStatus primConvert16u8uC1(const std::uint16_t* src, std::int32_t srcStep, std::uint8_t* dst,
                              std::int32_t dstStep, PrimSize size);

/// A NaN becomes 0. primBadArg for an unknown rounding.
PrimStatus primConvert32f8uC1(const float* src, std::int32_t srcStep, std::uint8_t* dst,
                              std::int32_t dstStep, PrimSize size, std::int32_t rounding);

/// A NaN becomes 32767. primBadArg for an unknown rounding.
PrimStatus primConvert32f16sC1(const float* src, std::int32_t srcStep, std::int16_t* dst,
                               std::int32_t dstStep, PrimSize size, std::int32_t rounding);

} // namespace kt7
