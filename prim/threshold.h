// Thresholds and comparison.
#pragma once

#include "prim/primtypes.h"

namespace kt7 {

/// Values below t become t; NaN stays.
PrimStatus primThresholdLT32fC1I(float* srcDst, std::int32_t step, PrimSize size, float t);

/// Values above t become t; NaN stays.
PrimStatus primThresholdGT32fC1I(float* srcDst, std::int32_t step, PrimSize size, float t);

/// On interleaved 3-channel pixels: samples of channel c above t[c] become t[c].
PrimStatus primThresholdGT16uC3I(std::uint16_t* srcDst, std::int32_t step, PrimSize size,
                                 const std::uint16_t* t);

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

} // namespace kt7
