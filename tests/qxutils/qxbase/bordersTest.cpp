#include "qxutils/qxbase/borders.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

namespace kt7 {
namespace {

TEST(CopyFrame, TakesTheWantedSidesOfTheStorage) {
    const std::int32_t w = 9, h = 7;
    for (const auto& [top, bottom, left, right] :
         {std::array{1, 2, 3, 0}, std::array{0, -4, 0, 2}, std::array{7, 0, 0, 0},
          std::array{0, 0, 9, -1}}) {
        GIMG<float> from(w, h), to(w, h);
        for (std::int32_t y = 0; y < h; ++y) {
            std::ranges::fill(from.row(y), 1.0f);
            std::ranges::fill(to.row(y), 0.0f);
        }
        {
            const RoiScope fromRoi(from, 2);
            const RoiScope toRoi(to, 1);
            copyFrame(from, to, top, bottom, left, right);
        }
        for (std::int32_t y = 0; y < h; ++y)
            for (std::int32_t x = 0; x < w; ++x)
                EXPECT_EQ(*to.at(x, y) == 1.0f,
                          y < top || y >= h - bottom || x < left || x >= w - right)
                    << x << "," << y;
    }
}

} // namespace
} // namespace kt7
