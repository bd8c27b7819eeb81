// Orthonormal cosine transform of an 8x8 block (Ahmed, Natarajan and Rao 1974).
#pragma once

#include "prim/primtypes.h"

namespace kt7 {

/// Forward and inverse DCT-II of 64 contiguous floats, row after row, in place. A constant block of
/// value b has the single coefficient 8 b, element 0.
PrimStatus primDCT8x8Fwd32fC1I(float* block);
PrimStatus primDCT8x8Inv32fC1I(float* block);

} // namespace kt7
