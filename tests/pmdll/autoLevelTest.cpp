// Auto-level views through the library as a host loads it.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <vector>

#include "include/kt7lib/kt7lib.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using Pixel = std::array<int, 3>;

Bytes imageOf(const std::vector<Pixel>& pixels) {
    Bytes rgb;
    for (const Pixel& p : pixels)
        for (const int v : p)
            rgb.push_back(static_cast<std::uint8_t>(v));
    return rgb;
}

using View = std::int32_t (*)(std::uint8_t*, std::int32_t, std::int32_t, std::int32_t, std::int32_t,
                              std::int32_t);

/// The one-row image after a view.
Bytes viewed(Bytes rgb, View view, std::int32_t mode, std::int32_t target) {
    const auto bytes = static_cast<std::int32_t>(rgb.size());
    EXPECT_EQ(1, view(rgb.data(), bytes, bytes / 3, 1, mode, target));
    return rgb;
}

Bytes brightened(Bytes rgb, float target) {
    const auto bytes = static_cast<std::int32_t>(rgb.size());
    EXPECT_EQ(1, qxPreviewAutoLevel(rgb.data(), bytes, bytes / 3, 1, target));
    return rgb;
}

TEST(AutoLevel, OneFactorBringsTheBrightestChannelToTheTarget) {
    // 100 / 40 less a hair is 19 eighths; halves go to the even neighbour.
    EXPECT_EQ(imageOf({{95, 48, 24}}), brightened(imageOf({{40, 20, 10}}), 100.0f));
    EXPECT_EQ(imageOf({{95, 48, 24}}), viewed(imageOf({{40, 20, 10}}), &qxRGBAutoLevel, 0, 100));
    const Bytes spark = imageOf(std::vector<Pixel>(99)), black = spark;
    Bytes sparkIn = spark;
    sparkIn[0] = 8, sparkIn[1] = 4, sparkIn[5] = 9;
    Bytes sparkOut = spark;
    sparkOut[0] = 250, sparkOut[1] = 125, sparkOut[5] = 255; // 31.25 at most; 281.25 saturates
    EXPECT_EQ(sparkOut, brightened(sparkIn, 1e30f));
    EXPECT_EQ(black, brightened(black, 255.0f));
    for (const float target : {-5.0f, 0.0f, 60.0f, 100.0f, 101.0f, std::nanf("")})
        EXPECT_EQ(imageOf({{9, 100, 3}}), brightened(imageOf({{9, 100, 3}}), target));
}

// Differences to green are halved towards zero.
TEST(AutoLevel, GreyViewsOfChannelsAndDifferences) {
    const Bytes rgb = imageOf({{10, 20, 31}, {23, 20, 17}, {255, 0, 255}, {0, 255, 0}});
    const struct {
        View view;
        std::int32_t mode;
        std::array<int, 4> grey;
    } cases[] = {{&qxRGBAutoLevel, 1, {10, 23, 255, 0}},
                 {&qxRGBAutoLevel, 2, {20, 20, 0, 255}},
                 {&qxRGBAutoLevel, 3, {31, 17, 255, 0}},
                 {&qxRGB2GDbDrAutoLevel, 1, {20, 20, 0, 255}},
                 {&qxRGB2GDbDrAutoLevel, 3, {133, 127, 255, 1}},
                 {&qxRGB2GDbDrAutoLevel, 4, {123, 129, 255, 1}}};
    for (const auto& [view, mode, grey] : cases) {
        std::vector<Pixel> expected;
        for (const int v : grey)
            expected.push_back({v, v, v});
        EXPECT_EQ(imageOf(expected), viewed(rgb, view, mode, 1)) << mode;
    }
    EXPECT_EQ(imageOf({{59, 59, 59}, {118, 118, 118}}), // 90 / 60 less a hair: 11 eighths
              viewed(imageOf({{9, 43, 7}, {1, 86, 3}}), &qxRGBAutoLevel, 2, 90));
}

// ITU-R BT.601, studio range.
TEST(AutoLevel, LumaAndChromaAreThoseOfTheStandard) {
    std::mt19937 random(3);
    std::vector<Pixel> pixels = {{0, 0, 0}, {255, 255, 255}, {255, 0, 0}, {0, 255, 0}, {0, 0, 255}};
    for (int i = 0; i < 3000; ++i)
        pixels.push_back({static_cast<int>(random() % 256), static_cast<int>(random() % 256),
                          static_cast<int>(random() % 256)});
    const Bytes rgb = imageOf(pixels);
    const Bytes luma = viewed(rgb, &qxRGB2YCbCrAutoLevel, 1, 0);
    const Bytes blue = viewed(rgb, &qxRGB2YCbCrAutoLevel, 3, 0);
    const Bytes red = viewed(rgb, &qxRGB2YCbCrAutoLevel, 4, 0);
    const Bytes chroma = viewed(rgb, &qxRGB2YCbCrAutoLevel, 2, 0);
    EXPECT_EQ(16, luma[0]);
    EXPECT_EQ(235, luma[3]);
    EXPECT_EQ(128, blue[3]);
    EXPECT_EQ(240, red[6]);
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        const double r = pixels[i][0] / 255.0, g = pixels[i][1] / 255.0, b = pixels[i][2] / 255.0;
        const double y = 0.299 * r + 0.587 * g + 0.114 * b;
        // The coefficients have three decimals, which is worth a tenth of a level at most.
        ASSERT_NEAR(16 + 219 * y, luma[3 * i], 0.6);
        ASSERT_NEAR(128 + 224 * 0.5 * (b - y) / 0.886, blue[3 * i], 0.6);
        ASSERT_NEAR(128 + 224 * 0.5 * (r - y) / 0.701, red[3 * i], 0.6);
        for (const Bytes* grey : {&luma, &blue, &red})
            ASSERT_TRUE((*grey)[3 * i] == (*grey)[3 * i + 1] &&
                        (*grey)[3 * i] == (*grey)[3 * i + 2]);
        const double level = (128 - 16) * 255 / 219.0;
        const double u = (blue[3 * i] - 128) * 255 / 112.0, v = (red[3 * i] - 128) * 255 / 112.0;
        const double expected[3] = {level + 0.701 * v,
                                    level - 0.886 * 0.114 / 0.587 * u - 0.701 * 0.299 / 0.587 * v,
                                    level + 0.886 * u};
        for (std::size_t c = 0; c < 3; ++c)
            ASSERT_NEAR(std::clamp(expected[c], 0.0, 255.0), chroma[3 * i + c], 1.01);
    }
}

TEST(AutoLevel, StretchHoldsTheCentreUpToTruncation) {
    const struct {
        std::int32_t target, level;
    } cases[] = {{1, 128}, {2, 128}, {3, 126}, {4, 128}, {5, 125}, {15, 120}, {1 << 30, 120}};
    for (const auto& c : cases) {
        const Bytes grey = imageOf({{50, 50, 50}, {70, 70, 70}});
        const Bytes flat = imageOf(std::vector<Pixel>(2, {c.level, c.level, c.level}));
        EXPECT_EQ(flat, viewed(grey, &qxRGB2GDbDrAutoLevel, 3, c.target)) << c.target;
        EXPECT_EQ(flat, viewed(grey, &qxRGB2YCbCrAutoLevel, 4, c.target)) << c.target;
    }
}

TEST(AutoLevel, OnePlaneStretchesByEitherSideTwoPlanesByTheUpper) {
    // Db is 40 below its centre, Dr on it.
    const Bytes rgb = imageOf(std::vector<Pixel>(4, {100, 100, 20}));
    EXPECT_EQ(imageOf(std::vector<Pixel>(4, {48, 48, 48})), // twice 40
              viewed(rgb, &qxRGB2GDbDrAutoLevel, 3, 82));
    EXPECT_EQ(imageOf(std::vector<Pixel>(4, {88, 88, 88})), // 45 / 41 is below the least gain
              viewed(rgb, &qxRGB2GDbDrAutoLevel, 3, 45));
    // Together they see no excursion above, stretch by 15 and saturate: Db 0, Dr 120.
    const Bytes both = viewed(rgb, &qxRGB2GDbDrAutoLevel, 2, 82);
    EXPECT_NEAR(117.6, both[0], 1.0);
    EXPECT_NEAR(187.1, both[1], 1.0);
    EXPECT_EQ(0, both[2]);
    // Blue 20 above its centre rules red 5 above: both by 2.
    const Bytes warm = viewed(imageOf({{110, 100, 140}}), &qxRGB2GDbDrAutoLevel, 2, 42);
    const Bytes same = viewed(imageOf({{120, 100, 180}}), &qxRGB2GDbDrAutoLevel, 2, 0);
    EXPECT_EQ(same, warm);
}

// Whatever the shape of the image, its pixels come out alike; rows longer than a working strip,
// with padding that survives.
TEST(AutoLevel, ViewsKnowNoPlaceAndKeepPadding) {
    constexpr std::int32_t pixels = 5001, padding = 5;
    std::mt19937 random(4);
    Bytes before(pixels * 3 + padding);
    for (std::uint8_t& v : before)
        v = static_cast<std::uint8_t>(random() % 90);
    for (const View view : {&qxRGBAutoLevel, &qxRGB2YCbCrAutoLevel, &qxRGB2GDbDrAutoLevel})
        for (std::int32_t mode = 0; mode < (view == &qxRGBAutoLevel ? 4 : 5); ++mode) {
            const Bytes wide =
                viewed(Bytes(before.begin(), before.end() - padding), view, mode, 80);
            Bytes tall = before, padded = before;
            ASSERT_EQ(1, view(tall.data(), 9, 3, pixels / 3, mode, 80));
            EXPECT_TRUE(std::equal(wide.begin(), wide.end(), tall.begin())) << mode;
            ASSERT_EQ(1, view(padded.data(), 9, 2, pixels / 3, mode, 80));
            EXPECT_NE(before, padded);
            for (std::size_t i = 0; i < before.size(); ++i)
                ASSERT_TRUE(padded[i] == before[i] || i % 9 < 6) << mode;
        }
}

TEST(AutoLevel, RefusalsWriteNothing) {
    const Bytes before = imageOf({{1, 2, 3}, {4, 5, 6}});
    Bytes rgb = before;
    const struct {
        std::int32_t rowBytes, width, height;
    } bad[] = {{5, 2, 1}, {6, -1, 0}, {6, 2, -1}, {6, 1 << 30, 1}};
    for (const View view : {&qxRGBAutoLevel, &qxRGB2YCbCrAutoLevel, &qxRGB2GDbDrAutoLevel}) {
        for (const std::int32_t mode : {-1, view == &qxRGBAutoLevel ? 4 : 5})
            EXPECT_EQ(0, view(rgb.data(), 6, 2, 1, mode, 200));
        for (const auto& [rowBytes, width, height] : bad)
            EXPECT_EQ(0, view(rgb.data(), rowBytes, width, height, 1, 200));
        EXPECT_EQ(0, view(nullptr, 6, 2, 1, 1, 200));
        // Nothing is shown of an empty view, as asked.
        EXPECT_EQ(1, view(rgb.data(), 6, 2, 0, 2, 200));
        EXPECT_EQ(1, view(nullptr, 0, 0, 1, 0, 200));
        EXPECT_EQ(0, view(nullptr, 0, 0, 1, -1, 200));
    }
    EXPECT_EQ(0, qxPreviewAutoLevel(nullptr, 6, 2, 1, 200.0f));
    EXPECT_EQ(0, qxPreviewAutoLevel(rgb.data(), 5, 2, 1, 200.0f));
    EXPECT_EQ(before, rgb);
}

} // namespace
