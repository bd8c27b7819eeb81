#include "qxenhlib/SubbandPlane.h"

namespace kt7 {

SubbandPlane::SubbandPlane(std::int32_t planeKind, std::int32_t width, std::int32_t height)
    : kind(planeKind), nominalWidth(width), nominalHeight(height), border(borderCells) {
    if (width % 2 != 0 || height % 2 != 0)
        raise(oddBandSize);
    const std::int32_t w = kind == fullSize ? width : (width + 1) >> 1;
    const std::int32_t h = kind == fullSize ? height : (height + 1) >> 1;
    image = std::make_unique<GIMG<float>>(w + 2 * border + 1, h + 2 * border + 1);
    image->crop(border, border);
    image->width = w;
    image->height = h;
}

} // namespace kt7
