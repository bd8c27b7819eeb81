// Median filters. src points at the pixel of the first output; its neighbourhood is read round it.
#pragma once

#include "prim/primtypes.h"

namespace kt7 {

/// Median over maskSize pixels whose top left corner lies `anchor` before the output's pixel.
/// primBadMask unless both sides are odd and above 0, primBadAnchor when the anchor lies outside,
/// primNoMem when a large mask finds no storage for its samples.
PrimStatus primFilterMedian32fC1(const float* src, std::int32_t srcStep, float* dst,
                                 std::int32_t dstStep, PrimSize size, PrimSize maskSize,
                                 PrimPoint anchor);

/// Median over a cross: of a pixel and its 4 neighbours (mask 33) or of those and the 4 beyond them
/// (mask 55). primBadMask for other codes.
PrimStatus primFilterMedianCross16sC1(const std::int16_t* src, std::int32_t srcStep,
                                      std::int16_t* dst, std::int32_t dstStep, PrimSize size,
                                      std::int32_t mask);

} // namespace kt7
