// Histogram with evenly spread levels.
#pragma once

#include "prim/primtypes.h"

namespace kt7 {

/// Spreads nLevels integer boundaries from lower to upper over `levels`, the first intervals taking
/// what an even division leaves over, and counts in hist[i] the samples p with
/// levels[i] <= p < levels[i + 1]. hist has nLevels - 1 entries. primBadLevels for fewer than 2.
PrimStatus primHistogramEven8uC1(const std::uint8_t* src, std::int32_t srcStep, PrimSize size,
                                 std::int32_t* hist, std::int32_t* levels, std::int32_t nLevels,
                                 std::int32_t lower, std::int32_t upper);

} // namespace kt7
