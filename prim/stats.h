// Sums, means and extremes of planes.
#pragma once

#include "prim/primtypes.h"

namespace kt7 {

/// Sum of all samples.
PrimStatus primSum8uC1(const std::uint8_t* src, std::int32_t srcStep, PrimSize size,
                       std::uint64_t* sum);

/// Means of the 3 channels of interleaved pixels.
PrimStatus primMean8uC3(const std::uint8_t* src, std::int32_t srcStep, PrimSize size,
                        double* means);

PrimStatus primMin16sC1(const std::int16_t* src, std::int32_t srcStep, PrimSize size,
                        std::int16_t* smallest);
PrimStatus primMax16sC1(const std::int16_t* src, std::int32_t srcStep, PrimSize size,
                        std::int16_t* largest);

} // namespace kt7
