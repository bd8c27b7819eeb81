// Gaussian noise on 16-bit planes.
#pragma once

#include "prim/primtypes.h"

namespace kt7 {

/// Adds normally distributed noise of the given mean and deviation to each sample, with saturation.
/// The sequence is fixed by *seed, which is then moved on, so that a next call continues with other
/// noise.
PrimStatus primAddRandGauss16sC1I(std::int16_t* srcDst, std::int32_t step, PrimSize size,
                                  std::int16_t mean, std::int16_t stdDev, std::uint32_t* seed);

} // namespace kt7
