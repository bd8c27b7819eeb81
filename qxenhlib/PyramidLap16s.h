// Laplacian pyramid of one 16-bit plane, built and folded in place.
#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "qxutils/qxbase/IMG.h"

namespace kt7 {

/// Laplacian pyramid (Burt and Adelson 1983) with the 5-tap generating kernel of a = 0.4 in 14-bit
/// integers. The plane given becomes level 0 in place; levels[1] to levels[levelCount - 1] are the
/// coarser Laplacians and levels[levelCount] the low-pass residual, each side half of the one
/// above, truncated. Folding back without filtering gives the plane exactly unless a sum has
/// saturated.
class PyramidLap16s {
  public:
    static constexpr std::int32_t mostLevels = 8;

    std::int32_t levelCount;                ///< Laplacian levels still present
    GIMG<std::int16_t>* levels[mostLevels]; ///< levels[0] is the caller's plane

    /// Builds `depth` levels over `plane`, which must outlive the object; with a depth of 8 or
    /// above levelCount is -1 and nothing is built. Raises noBufferStorage.
    PyramidLap16s(GIMG<std::int16_t>& plane, std::int32_t depth);

    /// Overwrites `image`, of the size of levels[levelCount - 1], by the expansion of the residual
    /// and returns levelCount - 1; or returns 0 with `image` unchanged when there is no level below
    /// the residual or the size differs. Plain form of sumTopInto (wholeExpansion.cpp).
    std::int32_t expandTopInto(GIMG<std::int16_t>& image) const;

    /// The part of levels[levelCount - 1] plus the expansion of the residual, saturated, whose top
    /// left sample is (x, y): what an expansion and a sum over the whole level would give there.
    /// Serial, so that threads can each ask for a tile of their own. There must be a level below
    /// the residual.
    void sumTopInto(std::int32_t x, std::int32_t y, GIMG<std::int16_t>& tile) const;

    /// Adds the expansion of the residual to the level below it, drops the residual, and returns
    /// the new levelCount.
    std::int32_t foldTop();

    /// Adds the expansion of Laplacian k to level k - 1, sets level k to 0, and returns levelCount;
    /// returns 0 with nothing done unless 0 < k < levelCount.
    std::int32_t foldLevel(std::int32_t k);

  private:
    std::array<std::unique_ptr<GIMG<std::int16_t>>, mostLevels> owned_;
};

/// Low-pass filters and halves `src` into `dst`, then leaves in `src` its difference from the
/// expansion of `dst`, saturated.
void reduce2xLap(GIMG<std::int16_t>& src, GIMG<std::int16_t>& dst);

/// Plain form of the expansions (wholeExpansion.cpp). Overwrites all of `dst` by `src` at twice the size: zeros inserted, then the 5x5 kernel with a
/// gain of 4. Outside `src` counts as 0, so the image falls off at its edges; the Laplacian of the
/// finer level holds the difference.
void expand2x(const GIMG<std::int16_t>& src, GIMG<std::int16_t>& dst);

} // namespace kt7
