#include "qxenhlib/PyramidLap16s.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "tests/support/planes.h"
#include "tests/support/targets.h"

namespace kt7 {
namespace {

using Plane = GIMG<std::int16_t>;

void fillRandom(Plane& plane, std::int32_t lowest, std::int32_t highest) {
    std::mt19937 random(7);
    std::uniform_int_distribution<std::int32_t> value(lowest, highest);
    test::fill(plane, [&] { return value(random); });
}

// The generating kernel in 14 bits, with the centre that makes each of its four sub-grids of even
// and odd rows and columns add up to the same.
std::int32_t weight(std::int32_t r, std::int32_t c) {
    constexpr double generator[5] = {0.05, 0.25, 0.4, 0.25, 0.05};
    return static_cast<std::int32_t>(std::lround(generator[r] * generator[c] * 16384)) -
           (r == 2 && c == 2 ? 1 : 0);
}

std::int32_t clampTo16(std::int64_t v) {
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(v, -32768, 32767));
}

TEST(PyramidLap16s, FoldsBackExactly) {
    struct Size {
        std::int32_t width, height;
    };
    for (const Size size : {Size{256, 256}, Size{257, 301}, Size{303, 270}, Size{259, 256}}) {
        Plane plane(size.width, size.height);
        fillRandom(plane, -12000, 12000);
        const auto before = test::samplesOf(plane);
        PyramidLap16s pyramid(plane, 3);
        EXPECT_EQ(pyramid.levelCount, 3);
        EXPECT_EQ(pyramid.levels[3]->width, size.width / 2 / 2 / 2);
        EXPECT_NE(test::samplesOf(plane), before);
        EXPECT_EQ(pyramid.foldTop(), 2);
        EXPECT_EQ(pyramid.foldTop(), 1);
        EXPECT_EQ(pyramid.foldTop(), 0);
        EXPECT_EQ(pyramid.foldTop(), 0);
        EXPECT_EQ(test::samplesOf(plane), before) << size.width << "x" << size.height;
    }
}

// Two expansions are rounded apart, so the road through foldLevel may be off by one step.
TEST(PyramidLap16s, FoldsAMiddleLevelWithinOneStep) {
    Plane plane(258, 263);
    fillRandom(plane, 0, 20000);
    const auto before = test::samplesOf(plane);
    PyramidLap16s pyramid(plane, 2);
    EXPECT_EQ(pyramid.foldLevel(0), 0);
    EXPECT_EQ(pyramid.foldLevel(2), 0);
    EXPECT_EQ(pyramid.foldLevel(1), 2);
    for (const std::int16_t sample : test::samplesOf(*pyramid.levels[1]))
        ASSERT_EQ(sample, 0);
    pyramid.foldTop();
    pyramid.foldTop();
    const auto after = test::samplesOf(plane);
    std::int32_t worst = 0;
    for (std::size_t i = 0; i < after.size(); ++i)
        worst = std::max(worst, std::abs(after[i] - before[i]));
    EXPECT_LE(worst, 1);
}

TEST(PyramidLap16s, KeepsConstantPlanesExactly) {
    for (const std::int16_t value : {std::int16_t{-1}, std::int16_t{9999}, std::int16_t{-32768}}) {
        Plane plane(256, 256);
        test::fill(plane, value);
        const PyramidLap16s pyramid(plane, 3);
        for (const std::int16_t sample : test::samplesOf(*pyramid.levels[3]))
            ASSERT_EQ(sample, value);
        for (std::int32_t i = 8; i < 120; ++i)
            ASSERT_EQ(*pyramid.levels[1]->at(i, 64), 0);
        // The expansion falls off at the edges, which a value of -1 is too small to show.
        EXPECT_EQ(*plane.at(0, 0) == 0, value == -1);
    }
}

class PyramidSteps : public test::OnTarget {};

KT7_ON_EVERY_TARGET(PyramidSteps);

// The low-pass image against the generating kernel in wider arithmetic, the detail against the
// expansion of it by definition.
TEST_P(PyramidSteps, MatchTheGeneratingKernel) {
    for (const PrimSize size : {PrimSize{64, 48}, PrimSize{67, 33}, PrimSize{34, 35}}) {
        Plane original(size.width, size.height), fine(size.width, size.height),
            expanded(size.width, size.height), coarse(size.width / 2, size.height / 2);
        fillRandom(original, -32768, 32767);
        test::fill(fine, [&](std::int32_t x, std::int32_t y) { return *original.at(x, y); });
        reduce2xLap(fine, coarse);
        const auto edge = [](std::int32_t v, std::int32_t n) { return std::clamp(v, 0, n - 1); };
        for (std::int32_t y = 0; y < coarse.height; ++y)
            for (std::int32_t x = 0; x < coarse.width; ++x) {
                std::int64_t sum = 0;
                for (std::int32_t r = 0; r < 5; ++r)
                    for (std::int32_t c = 0; c < 5; ++c)
                        sum += std::int64_t{weight(r, c)} *
                               *original.at(edge(2 * x + c - 2, size.width),
                                            edge(2 * y + r - 2, size.height));
                ASSERT_EQ(*coarse.at(x, y), sum >> 14) << x << "," << y;
            }
        expand2x(coarse, expanded);
        for (std::int32_t y = 0; y < size.height; ++y)
            for (std::int32_t x = 0; x < size.width; ++x)
                ASSERT_EQ(*fine.at(x, y), clampTo16(*original.at(x, y) - *expanded.at(x, y)))
                    << x << "," << y;
    }
}

TEST(PyramidLap16s, ExpandTopIntoChecksTheSize) {
    Plane plane(256, 260);
    fillRandom(plane, 0, 30000);
    PyramidLap16s pyramid(plane, 3);
    Plane right(64, 65), wrong(64, 64);
    std::ranges::fill(wrong.row(0), std::int16_t{77});
    EXPECT_EQ(pyramid.expandTopInto(wrong), 0);
    EXPECT_EQ(*wrong.at(5, 0), 77);
    EXPECT_EQ(pyramid.expandTopInto(right), 2);
    EXPECT_EQ(pyramid.levelCount, 3);
    // The sum of a part is the part of the sum, at odd and even places and at all four edges.
    const Plane& level = *pyramid.levels[2];
    for (const auto& [x, y, w, h] : {std::tuple{0, 0, 64, 65},
                                     {0, 3, 17, 20},
                                     {1, 0, 30, 7},
                                     {2, 5, 9, 9},
                                     {31, 40, 33, 25},
                                     {46, 64, 18, 1}}) {
        Plane tile(w, h);
        pyramid.sumTopInto(x, y, tile);
        for (std::int32_t r = 0; r < h; ++r)
            for (std::int32_t c = 0; c < w; ++c)
                ASSERT_EQ(*tile.at(c, r),
                          clampTo16(*right.at(x + c, y + r) + *level.at(x + c, y + r)))
                    << x << "," << y << " " << c << "," << r;
    }
    const PyramidLap16s none(plane, 0);
    EXPECT_EQ(none.expandTopInto(right), 0);
    const PyramidLap16s tooDeep(plane, 8);
    EXPECT_EQ(tooDeep.levelCount, -1);
}

} // namespace
} // namespace kt7
