#include "qxenhlib/CDTDWT2d.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "qxenhlib/waveletFilters.h"
#include "tests/support/planes.h"

namespace kt7 {
namespace {

GIMG<float>& fillNoise(GIMG<float>& tile, unsigned seed) {
    std::mt19937 random(seed);
    std::normal_distribution<float> normal;
    test::fill(tile, [&] { return normal(random); });
    return tile;
}

double energyOf(const GIMG<float>& plane) {
    double sum = 0;
    for (std::int32_t y = 0; y < plane.height; ++y)
        for (const float v : plane.row(y))
            sum += double{v} * double{v};
    return sum;
}

TEST(WaveletFilters, AreOrthonormalBanks) {
    for (std::int32_t stage = 0; stage < 2; ++stage)
        for (std::int32_t tree = 0; tree < 2; ++tree)
            for (std::int32_t p = 0; p < 2; ++p) {
                const float* const first = analysisTaps.at[stage][tree][p];
                double sum = 0;
                for (std::int32_t i = 0; i < waveletTaps; ++i)
                    sum += double{first[i]};
                EXPECT_NEAR(sum, p == lowPass ? std::sqrt(2.0) : 0.0, 2e-7);
                for (std::int32_t q = 0; q < 2; ++q)
                    for (std::int32_t shift = 0; shift < waveletTaps; shift += 2) {
                        const float* const second = analysisTaps.at[stage][tree][q];
                        double product = 0;
                        for (std::int32_t i = shift; i < waveletTaps; ++i)
                            product += double{first[i]} * double{second[i - shift]};
                        EXPECT_NEAR(product, p == q && shift == 0 ? 1.0 : 0.0, 2e-7)
                            << stage << tree << p << q << shift;
                    }
            }
}

TEST(CDTDWT2d, ComesBackExactlyButForTheFirstFiveOfAPaddedTile) {
    struct Case {
        std::int32_t width, height, levels;
    };
    for (const Case& c : {Case{64, 96, 4}, Case{64, 32, 0}, Case{256, 256, 7}, Case{50, 64, 4},
                          Case{64, 41, 3}, Case{101, 77, 4}}) {
        GIMG<float> tile(c.width, c.height), back(c.width, c.height);
        fillNoise(tile, 5);
        CDTDWT2d transform({c.width, c.height}, c.levels);
        ASSERT_EQ(transform.loadImage(tile.data, tile.stepBytes, tile.roi()), 0);
        ASSERT_EQ(transform.forward(), 0);
        ASSERT_EQ(transform.inverse(), 0);
        ASSERT_EQ(transform.storeImage(back.data, back.stepBytes, back.roi()), 0);
        const std::int32_t left = transform.levelSize(0).width != c.width ? 5 : 0;
        const std::int32_t top = transform.levelSize(0).height != c.height ? 5 : 0;
        for (std::int32_t y = top; y < c.height; ++y)
            for (std::int32_t x = left; x < c.width; ++x)
                ASSERT_NEAR(*back.at(x, y), *tile.at(x, y), 2e-5)
                    << c.width << ' ' << x << ' ' << y;
    }
}

// Low-pass bands of the other trees reach nothing; without detail only the last tree's own is left,
// with its energy.
TEST(CDTDWT2d, RebuildsFromTheLastTree) {
    GIMG<float> tile(64, 64);
    fillNoise(tile, 6);
    for (float& v : tile.row(0))
        v += 5.0f;
    CDTDWT2d transform({64, 64}, 3);
    transform.loadImage(tile.data, tile.stepBytes, tile.roi());
    transform.forward();
    const auto clear = [](GIMG<float>& plane) { test::fill(plane, 0.0f); };
    for (std::int32_t tree = 0; tree < 3; ++tree)
        clear(*transform.band(2, tree / 2, tree % 2, lowLow)->image);
    for (std::int32_t j = 0; j < 3; ++j)
        for (std::int32_t o = 0; o < waveletOrientations; ++o)
            for (const bool real : {true, false})
                clear(transform.getBand(j, o, real));
    const double low = energyOf(*transform.band(2, 1, 1, lowLow)->image);
    transform.inverse();
    EXPECT_NEAR(energyOf(*transform.image->image), low, 1e-4 * low);
    EXPECT_GT(low, 1.0);
}

TEST(CDTDWT2d, RefusesWhatDoesNotFit) {
    for (const std::int32_t levels : {-1, 8}) {
        int code = 0;
        try {
            const CDTDWT2d transform({64, 64}, levels);
        } catch (int raised) {
            code = raised;
        }
        EXPECT_EQ(code, 5);
    }
    EXPECT_THROW(SubbandPlane(lowLow, 7, 8), int);
    EXPECT_THROW(SubbandPlane(fullSize, 8, 7), int);
    CDTDWT2d transform({64, 64}, 4);
    GIMG<float> tile(64, 64);
    fillNoise(tile, 8);
    ASSERT_EQ(transform.loadImage(tile.data, tile.stepBytes, tile.roi()), 0);
    EXPECT_EQ(transform.image->at(0, 0)[-1], *tile.at(63, 0));
    EXPECT_EQ(transform.loadImage(tile.at(1, 1), tile.stepBytes, {31, 60}), 2);
    EXPECT_EQ(transform.loadImage(tile.at(1, 1), tile.stepBytes, {60, 31}), 2);
    EXPECT_EQ(*transform.image->at(0, 0), *tile.at(0, 0));
    SubbandPlane in(fullSize, 8, 8), half(lowLow, 8, 8), odd(lowLow, 6, 6), oddIn(fullSize, 6, 6);
    EXPECT_EQ(CDTDWT2d::analyseLevel(true, 0, 0, in, half, half, half, odd), 2);
    EXPECT_EQ(CDTDWT2d::analyseLevel(true, 0, 0, oddIn, odd, odd, odd, odd), 2);
    EXPECT_EQ(CDTDWT2d::analyseLevel(true, 2, 0, in, half, half, half, half), 4);
    EXPECT_EQ(CDTDWT2d::synthesiseLevel(true, 0, -1, half, half, half, half, in), 4);
    EXPECT_EQ(CDTDWT2d({64, 64}, 2, BandSet::restored).forward(), 2);
}

} // namespace
} // namespace kt7
