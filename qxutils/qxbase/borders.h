// Replication of an image's edge into the margins round it.
#pragma once

#include <cstdint>

#include "qxutils/qxbase/IMG.h"

namespace kt7 {

/// Fills the margins of a plane whose image stands in the region of interest with the given margins
/// round it: first the rows above and below, then the columns over all rows, so that corners hold the
/// image's corner samples. A margin of 0 does nothing.
void extendBorders(GIMG<std::int16_t>& plane, std::int32_t left, std::int32_t top,
                   std::int32_t right, std::int32_t bottom);

}  // namespace kt7
