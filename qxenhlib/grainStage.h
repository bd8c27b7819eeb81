// Artificial grain on the finished luma plane.
#pragma once

#include <cstdint>

#include "qxutils/qxbase/IMG.h"

namespace kt7 {

/// Adds Gaussian noise of deviation `grain` (1.0 is full scale, and the most that is added) to the
/// whole plane. Up to 1e-5, and when it is not a number, nothing happens. The grain differs from
/// call to call.
void addGrain(GIMG<std::int16_t>& luma, float grain);

} // namespace kt7
