// Thresholds.
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

} // namespace kt7
