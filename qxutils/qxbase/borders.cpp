#include "qxutils/qxbase/borders.h"

#include <algorithm>

namespace kt7 {

void extendBorders(GIMG<std::int16_t>& plane, std::int32_t left, std::int32_t top,
                   std::int32_t right, std::int32_t bottom) {
    for (std::int32_t y = 0; y < top; ++y) std::ranges::copy(plane.row(top), plane.row(y).begin());
    const std::int32_t lastRow = plane.height - bottom - 1;
    for (std::int32_t y = lastRow + 1; y < plane.height; ++y)
        std::ranges::copy(plane.row(lastRow), plane.row(y).begin());
    if (left < 1 && right < 1) return;
    for (std::int32_t y = 0; y < plane.height; ++y) {
        std::int16_t* row = plane.at(0, y);
        std::fill_n(row, left, row[left]);
        std::int16_t* end = row + plane.width - right;
        std::fill_n(end, right, end[-1]);
    }
}

}  // namespace kt7
