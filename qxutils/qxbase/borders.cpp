#include "qxutils/qxbase/borders.h"

#include <algorithm>

#include "prim/copy.h"

namespace kt7 {

void extendBorders(GIMG<std::int16_t>& plane, std::int32_t left, std::int32_t top,
                   std::int32_t right, std::int32_t bottom) {
    for (std::int32_t y = 0; y < top; ++y)
        std::ranges::copy(plane.row(top), plane.row(y).begin());
    const std::int32_t lastRow = plane.height - bottom - 1;
    for (std::int32_t y = lastRow + 1; y < plane.height; ++y)
        std::ranges::copy(plane.row(lastRow), plane.row(y).begin());
    if (left < 1 && right < 1)
        return;
    for (std::int32_t y = 0; y < plane.height; ++y) {
        std::int16_t* row = plane.at(0, y);
        std::fill_n(row, left, row[left]);
        std::int16_t* end = row + plane.width - right;
        std::fill_n(end, right, end[-1]);
    }
}

void copyFrame(const GIMG<float>& from, GIMG<float>& to, std::int32_t top, std::int32_t bottom,
               std::int32_t left, std::int32_t right) {
    // primCopy32fC1 refuses empty sizes, and with that skips the sides that aren't wanted.
    const auto copyPart = [&](std::int32_t x, std::int32_t y, PrimSize size) {
        primCopy32fC1(rowAt(static_cast<const float*>(from.base), from.stepBytes, y) + x,
                      from.stepBytes, rowAt(to.base, to.stepBytes, y) + x, to.stepBytes, size);
    };
    copyPart(0, 0, {from.fullWidth, top});
    copyPart(0, from.fullHeight - std::max(bottom, 0), {from.fullWidth, bottom});
    copyPart(0, 0, {left, from.fullHeight});
    copyPart(from.fullWidth - std::max(right, 0), 0, {right, from.fullHeight});
}

} // namespace kt7
