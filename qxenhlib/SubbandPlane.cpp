#include "qxenhlib/SubbandPlane.h"

#include <algorithm>

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

void extendBorder(SubbandPlane& plane) {
    extendPeriod(plane, plane.width(), plane.height());
}

void extendPeriod(SubbandPlane& plane, std::int32_t width, std::int32_t height) {
    const std::int32_t border = plane.border;
    const std::int32_t right = plane.width() + border, bottom = plane.height() + border;
    for (std::int32_t y = 0; y < height; ++y) {
        float* const row = plane.at(0, y);
        for (std::int32_t x = -1; x >= -border; --x)
            row[x] = row[x + width];
        // Ascending, so that a tile less wide than what is missing goes on repeating.
        for (std::int32_t x = width; x < right; ++x)
            row[x] = row[x - width];
    }
    const auto copyRow = [&](std::int32_t from, std::int32_t to) {
        std::copy_n(plane.at(-border, from), right + border, plane.at(-border, to));
    };
    for (std::int32_t y = -1; y >= -border; --y)
        copyRow(y + height, y);
    for (std::int32_t y = height; y < bottom; ++y)
        copyRow(y - height, y);
}

} // namespace kt7
