// Edge-preserving smoothing of a finished plane.
#pragma once

#include <cstdint>

#include "qxutils/qxbase/IMG.h"

namespace kt7 {

/// Smooths a plane in place, tile by tile, through a bilateral grid.
///
/// strength: span of values that count as similar, on the scale where 1 is 32768 sample steps;
/// spans below about 1/245 of the plane's own range are raised to that. range: cell size in pixels,
/// truncated; below 2 nothing is smoothed. Samples beyond +-0.64 of full scale leave the pass at
/// that limit. A plane without two different samples within the limits is left as it is. Samples
/// within 16 pixels of the plane's edge become -32768.
///
/// Always returns 1. Raises QXRC::layerNotReady, gridOverrun, noBufferStorage or std::bad_alloc.
std::int32_t bilateralPass(GIMG<std::int16_t>& plane, float strength, float range);

} // namespace kt7
