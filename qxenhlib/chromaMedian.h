// Median over the chroma planes before anything else happens to them.
#pragma once

#include <cstdint>

#include "qxutils/qxbase/IMG.h"

namespace kt7 {

/// Replaces each sample inside a rim by the median of it and its four neighbours, which takes
/// single coloured pixels out. mode 1: rim of 1 pixel; 2 and more: rim of 2; 0 and less: nothing.
/// Raises noBufferStorage.
void chromaMedian(GIMG<std::int16_t>& plane, std::int32_t mode);

} // namespace kt7
