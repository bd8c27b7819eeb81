#include "qxenhlib/PyramidLap16s.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "prim/kernels/select.h"

namespace kt7 {
namespace {

using Plane = GIMG<std::int16_t>;

void fillRandom(Plane& plane, std::int32_t lowest, std::int32_t highest) {
    std::mt19937 random(7);
    std::uniform_int_distribution<std::int32_t> value(lowest, highest);
    for (std::int32_t y = 0; y < plane.height; ++y)
        for (std::int16_t& sample : plane.row(y))
            sample = static_cast<std::int16_t>(value(random));
}

std::vector<std::int16_t> samplesOf(const Plane& plane) {
    std::vector<std::int16_t> all;
    for (std::int32_t y = 0; y < plane.height; ++y) {
        const auto row = plane.row(y);
        all.insert(all.end(), row.begin(), row.end());
    }
    return all;
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
        const auto before = samplesOf(plane);
        PyramidLap16s pyramid(plane, 3);
        EXPECT_EQ(pyramid.levelCount, 3);
        EXPECT_EQ(pyramid.levels[3]->width, size.width / 2 / 2 / 2);
        EXPECT_NE(samplesOf(plane), before);
        EXPECT_EQ(pyramid.foldTop(), 2);
        EXPECT_EQ(pyramid.foldTop(), 1);
        EXPECT_EQ(pyramid.foldTop(), 0);
        EXPECT_EQ(pyramid.foldTop(), 0);
        EXPECT_EQ(samplesOf(plane), before) << size.width << "x" << size.height;
    }
}

// Two expansions are rounded apart, so the road through foldLevel may be off by one step.
TEST(PyramidLap16s, FoldsAMiddleLevelWithinOneStep) {
    Plane plane(258, 263);
    fillRandom(plane, 0, 20000);
    const auto before = samplesOf(plane);
    PyramidLap16s pyramid(plane, 2);
    EXPECT_EQ(pyramid.foldLevel(0), 0);
    EXPECT_EQ(pyramid.foldLevel(2), 0);
    EXPECT_EQ(pyramid.foldLevel(1), 2);
    for (const std::int16_t sample : samplesOf(*pyramid.levels[1]))
        ASSERT_EQ(sample, 0);
    pyramid.foldTop();
    pyramid.foldTop();
    const auto after = samplesOf(plane);
    std::int32_t worst = 0;
    for (std::size_t i = 0; i < after.size(); ++i)
        worst = std::max(worst, std::abs(after[i] - before[i]));
    EXPECT_LE(worst, 1);
}

TEST(PyramidLap16s, KeepsConstantPlanesExactly) {
    for (const std::int16_t value : {std::int16_t{-1}, std::int16_t{9999}, std::int16_t{-32768}}) {
        Plane plane(256, 256);
        for (std::int32_t y = 0; y < 256; ++y)
            std::ranges::fill(plane.row(y), value);
        const PyramidLap16s pyramid(plane, 3);
        for (const std::int16_t sample : samplesOf(*pyramid.levels[3]))
            ASSERT_EQ(sample, value);
        for (std::int32_t i = 8; i < 120; ++i)
            ASSERT_EQ(*pyramid.levels[1]->at(i, 64), 0);
        // The expansion falls off at the edges, which a value of -1 is too small to show.
        EXPECT_EQ(*plane.at(0, 0) == 0, value == -1);
    }
}

// Both steps against the generating kernel in wider arithmetic, on every CPU target alike.
TEST(PyramidLap16s, StepsMatchTheGeneratingKernel) {
    struct Size {
        std::int32_t width, height;
    };
    for (const Size size : {Size{64, 48}, Size{67, 33}, Size{34, 35}}) {
        Plane original(size.width, size.height);
        fillRandom(original, -32768, 32767);
        std::vector<std::int16_t> firstLow, firstLap;
        for (std::int32_t target = 0; target <= static_cast<std::int32_t>(bestCpuTarget());
             ++target) {
            selectKernels(static_cast<CpuTarget>(target));
            Plane fine(size.width, size.height), coarse(size.width / 2, size.height / 2);
            for (std::int32_t y = 0; y < size.height; ++y)
                std::ranges::copy(original.row(y), fine.row(y).begin());
            reduce2xLap(fine, coarse);
            if (target == 0) {
                firstLow = samplesOf(coarse);
                firstLap = samplesOf(fine);
            }
            EXPECT_EQ(samplesOf(coarse), firstLow);
            EXPECT_EQ(samplesOf(fine), firstLap);
        }
        const auto edge = [](std::int32_t v, std::int32_t n) { return std::clamp(v, 0, n - 1); };
        Plane coarse(size.width / 2, size.height / 2), fine(size.width, size.height);
        for (std::int32_t y = 0; y < coarse.height; ++y) {
            for (std::int32_t x = 0; x < coarse.width; ++x) {
                std::int64_t sum = 0;
                for (std::int32_t r = 0; r < 5; ++r)
                    for (std::int32_t c = 0; c < 5; ++c)
                        sum += std::int64_t{weight(r, c)} *
                               *original.at(edge(2 * x + c - 2, size.width),
                                            edge(2 * y + r - 2, size.height));
                const auto low = firstLow[static_cast<std::size_t>(y * coarse.width + x)];
                ASSERT_EQ(low, sum >> 14) << x << "," << y;
                *coarse.at(x, y) = low;
            }
        }
        expand2x(coarse, fine);
        for (std::int32_t y = 0; y < size.height; ++y) {
            for (std::int32_t x = 0; x < size.width; ++x) {
                std::int64_t sum = 0;
                for (std::int32_t r = -2; r <= 2; ++r)
                    for (std::int32_t c = -2; c <= 2; ++c) {
                        const std::int32_t sy = y + r, sx = x + c;
                        if (sy < 0 || sx < 0 || sy % 2 != 0 || sx % 2 != 0)
                            continue;
                        if (sy / 2 >= coarse.height || sx / 2 >= coarse.width)
                            continue;
                        sum += std::int64_t{weight(r + 2, c + 2)} * *coarse.at(sx / 2, sy / 2);
                    }
                ASSERT_EQ(*fine.at(x, y), clampTo16(std::llrint(static_cast<double>(sum) / 4096)));
            }
        }
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
