// Types and status codes that all plane operations share.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kt7 {

/// Size of a plane in pixels.
struct PrimSize {
    std::int32_t width;
    std::int32_t height;
};

/// Position in pixels.
struct PrimPoint {
    std::int32_t x;
    std::int32_t y;
};

/// Rectangle in pixels.
struct PrimRect {
    std::int32_t x;
    std::int32_t y;
    std::int32_t width;
    std::int32_t height;
};

/// Result of a plane operation: 0 done, above 0 done with a remark, below 0 refused with nothing
/// written. Arguments are checked in the order pointers, sizes, steps, specific arguments.
using PrimStatus = std::int32_t;

enum : PrimStatus {
    primOk = 0,
    primDivByZero = 6,          ///< done, but a divisor was zero
    primBadArg = -5,            ///< scalar argument out of range
    primBadSize = -6,           ///< width, height or length below 1
    primNullPtr = -8,           ///< null pointer
    primNoMem = -9,             ///< out of memory
    primBadStep = -14,          ///< step below 1 or too small for the row
    primBadState = -17,         ///< filter state of the wrong kind
    primBadInterpolation = -22, ///< unknown interpolation code
    primBadFactor = -23,        ///< resize factor not above 0
    primBadFirLength = -26,     ///< filter length below 1
    primBadPhase = -28,         ///< phase outside its factor
    primBadRate = -29,          ///< up or down factor below 1
    primBadMask = -33,          ///< bad mask size
    primBadAnchor = -34,        ///< anchor outside the mask
    primZeroDivisor = -51,      ///< divisor argument is 0
    primBadLevels = -107,       ///< fewer than 2 histogram levels
    primUnalignedStep = -108,   ///< float step not a multiple of 4
    primEmptyResult = -201,     ///< a resize whose result would be empty
};

} // namespace kt7
