// Sharpening of the finished luma plane.
#pragma once

#include <cstdint>

#include "qxutils/qxbase/IMG.h"

namespace kt7 {

/// Deconvolves the plane tile by tile, for a blur of deviation `sharpen` + 0.3 pixels (`sharpen`
/// above 0). The outer 12 pixels, which belong to the plane's margin, become -32768. Raises
/// noKernelStorage, noBufferStorage or QXRC::layerNotReady.
void sharpenLuma(GIMG<std::int16_t>& luma, float sharpen);

} // namespace kt7
