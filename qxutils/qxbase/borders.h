// What happens at the edges of planes: replication into margins, and frames carried over.
#pragma once

#include <cstdint>

#include "qxutils/qxbase/IMG.h"

namespace kt7 {

/// Fills the margins of a plane whose image stands in the region of interest with the given margins
/// round it: first the rows above and below, then the columns over all rows, so that corners hold
/// the image's corner samples. A margin of 0 does nothing.
void extendBorders(GIMG<std::int16_t>& plane, std::int32_t left, std::int32_t top,
                   std::int32_t right, std::int32_t bottom);

/// Copies the outer rows and columns of `from` to `to`, two tiles of equal storage size: the first
/// `top` and last `bottom` rows over the full width, the first `left` and last `right` columns over
/// the full height. Counts below 1 copy nothing. Goes by the storage, not by the regions of
/// interest.
void copyFrame(const GIMG<float>& from, GIMG<float>& to, std::int32_t top, std::int32_t bottom,
               std::int32_t left, std::int32_t right);

} // namespace kt7
