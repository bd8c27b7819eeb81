#include "prim/resize.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "prim/plainForms.h"
#include "tests/support/targets.h"

namespace kt7 {
namespace {

std::vector<std::uint8_t> noise(std::size_t count) {
    std::vector<std::uint8_t> made(count);
    std::uint32_t state = 7;
    for (std::uint8_t& v : made)
        v = static_cast<std::uint8_t>((state = state * 1664525u + 1013904223u) >> 24);
    return made;
}

TEST(Resize, RefusesWithNothingWritten) {
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    std::uint8_t src[4] = {1, 2, 3, 4}, dst[4] = {9, 9, 9, 9};
    const PrimRect whole{0, 0, 2, 2};
    const struct {
        PrimStatus status;
        PrimSize srcSize;
        PrimRect rect;
        double factor;
        std::int32_t dstHeight, code;
    } cases[] = {{primBadSize, {0, 2}, whole, 1.0, 2, 2},
                 {primBadSize, {2, 2}, whole, 1.0, 0, 2},
                 {primBadFactor, {2, 2}, whole, 0.0, 2, 2},
                 {primBadFactor, {2, 2}, whole, nan, 2, 2},
                 {primBadInterpolation, {2, 2}, whole, 1.0, 2, 3},
                 {primEmptyResult, {2, 2}, whole, 0.2, 2, 2},
                 {primEmptyResult, {2, 2}, {2, 0, 2, 2}, 1.0, 2, 2}};
    for (const auto& c : cases)
        EXPECT_EQ(c.status, primResize8uC1(src, c.srcSize, 2, c.rect, dst, 2, {2, c.dstHeight},
                                           c.factor, 1.0, c.code))
            << &c - cases;
    EXPECT_EQ(primNullPtr, primResize8uC1(nullptr, {2, 2}, 2, whole, dst, 2, {2, 2}, 1, 1, 2));
    EXPECT_EQ(primNullPtr, primResize8uC1(src, {2, 2}, 2, whole, nullptr, 2, {2, 2}, 1, 1, 2));
    for (const std::uint8_t v : dst)
        EXPECT_EQ(9, v);
}

TEST(Resize, ReadsOnlyTheRectangle) {
    // A rectangle that hangs over the lower right corner is clipped to 3 x 2 pixels.
    const std::uint8_t src[4 * 3] = {0, 0, 0, 0, 0, 10, 20, 30, 0, 110, 120, 130};
    std::uint8_t dst[5 * 3] = {};
    ASSERT_EQ(primOk, primResize8uC1(src, {4, 3}, 4, {1, 1, 9, 9}, dst, 5, {5, 3}, 5.0 / 3.0, 1.5,
                                     primResizeLinear));
    const std::uint8_t expected[5 * 3] = {10, 15, 20,  25,  30,  60,  65, 70,
                                          75, 80, 110, 115, 120, 125, 130};
    for (int i = 0; i < 15; ++i)
        EXPECT_EQ(expected[i], dst[i]) << i;
    // Column centres 0.36, 1.07, 1.79, 2.5 of which four fit; row centre 1.
    ASSERT_EQ(primOk, primResize8uC1(src, {4, 3}, 4, {1, 1, 9, 9}, dst, 5, {5, 3}, 1.4, 0.5,
                                     primResizeNearest));
    EXPECT_EQ((std::vector<std::uint8_t>{110, 120, 120, 130, 30}),
              std::vector<std::uint8_t>(dst, dst + 5));
}

class ScreenPixels : public test::OnTarget {};

KT7_ON_EVERY_TARGET(ScreenPixels);

// On buffers that end where their last row ends.
TEST_P(ScreenPixels, AreTheThreePlanesResized) {
    for (const std::int32_t width : {2, 3, 5, 8, 33})
        for (const double factor : {0.4, 0.7, 1.3, 4.1}) {
            const std::int32_t height = 7;
            const auto rgb = noise(static_cast<std::size_t>(width * height * 3));
            std::vector<std::uint16_t> deep;
            for (const std::uint8_t v : rgb)
                deep.push_back(static_cast<std::uint16_t>(v * 128 + (v & 127)));
            ResizePlan plan;
            ASSERT_EQ(primOk, plan.setup({width, height}, {0, 0, width, height}, {999, 999}, factor,
                                         factor, primResizeLinear));
            const auto [w, h] = plan.size();
            const auto count = static_cast<std::size_t>(w * h);
            std::vector<std::uint8_t> bgra(4 * count), fromDeep(4 * count);
            plan.rowsToScreen8u(rgb.data(), 3 * width, bgra.data(), 4 * w, 0, h);
            plan.rowsToScreen16u(deep.data(), 6 * width, fromDeep.data(), 4 * w, 0, h / 2);
            plan.rowsToScreen16u(deep.data(), 6 * width, fromDeep.data(), 4 * w, h / 2, h);
            EXPECT_EQ(bgra, fromDeep);
            for (std::size_t c = 0; c < 3; ++c) {
                std::vector<std::uint8_t> plane, resized(count);
                for (std::size_t i = c; i < rgb.size(); i += 3)
                    plane.push_back(rgb[i]);
                ASSERT_EQ(primOk, primResize8uC1(plane.data(), {width, height}, width,
                                                 {0, 0, width, height}, resized.data(), w, {w, h},
                                                 factor, factor, primResizeLinear));
                for (std::size_t i = 0; i < count; ++i)
                    ASSERT_EQ(resized[i], bgra[4 * i + 2 - c]) << width << ' ' << factor;
            }
            for (std::size_t i = 0; i < count; ++i)
                ASSERT_EQ(255, bgra[4 * i + 3]);
        }
}

} // namespace
} // namespace kt7
