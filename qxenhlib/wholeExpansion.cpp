// Plain form, which only tests link: expansions of whole levels, by the zeros and the kernel that
// define them. PyramidLap16s makes what it needs of them row by row (expandPyramidRow), a tile's
// part by sumTopInto.
#include <algorithm>

#include "prim/plainForms.h"
#include "prim/set.h"
#include "qxenhlib/PyramidLap16s.h"

namespace kt7 {

void expand2x(const GIMG<std::int16_t>& src, GIMG<std::int16_t>& dst) {
    // In 14 bits; the centre makes each sub-grid of even or odd rows and columns add up to the same.
    constexpr std::int32_t kernel[25] = {41,   205, 328,  205,  41,   205, 1024, 1638, 1024,
                                         205,  328, 1638, 2620, 1638, 328, 205,  1024, 1638,
                                         1024, 205, 41,   205,  328,  205, 41};
    constexpr std::int32_t reach = 2;
    GIMG<std::int16_t> spread(dst.width + 2 * reach, dst.height + 2 * reach);
    primSet16sC1(0, spread.data, spread.stepBytes, spread.roi());
    for (std::int32_t y = 0; y < std::min(src.height, dst.height / 2); ++y)
        for (std::int32_t x = 0; x < std::min(src.width, dst.width / 2); ++x)
            *spread.at(reach + 2 * x, reach + 2 * y) = *src.at(x, y);
    primFilter16sC1(spread.at(reach, reach), spread.stepBytes, dst.data, dst.stepBytes, dst.roi(),
                    kernel, {5, 5}, {reach, reach}, 4096);
}

std::int32_t PyramidLap16s::expandTopInto(GIMG<std::int16_t>& image) const {
    const std::int32_t t = levelCount;
    if (t < 1)
        return 0;
    if (image.width != levels[t - 1]->width || image.height != levels[t - 1]->height)
        return 0;
    expand2x(*levels[t], image);
    return t - 1;
}

} // namespace kt7
