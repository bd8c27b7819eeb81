#include "qxenhlib/CDTDWT2d.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace kt7 {
namespace {

struct Grid {
    std::int32_t width, height;
    std::vector<double> v;
    Grid(std::int32_t w, std::int32_t h)
        : width(w), height(h), v(static_cast<std::size_t>(w) * static_cast<std::size_t>(h)) {}
    double& at(std::int32_t x, std::int32_t y) {
        return v[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                 static_cast<std::size_t>(x)];
    }
};

GIMG<float>& fillNoise(GIMG<float>& tile, unsigned seed) {
    std::mt19937 random(seed);
    std::normal_distribution<float> normal;
    for (std::int32_t y = 0; y < tile.height; ++y)
        for (float& v : tile.row(y))
            v = normal(random);
    return tile;
}

// One band by its definition, in double: every sum over both filters at once. The source repeats
// with period (pw, ph), which differs from its size at the finest level of a padded tile.
Grid slowBand(Grid& in, std::int32_t outW, std::int32_t outH, std::int32_t stage, std::int32_t a,
              std::int32_t rowBranch, std::int32_t b, std::int32_t columnBranch) {
    const float* const rowTaps = analysisTaps.at[stage][a][rowBranch];
    const float* const columnTaps = analysisTaps.at[stage][b][columnBranch];
    const auto wrap = [](std::int32_t i, std::int32_t n) { return ((i % n) + n) % n; };
    Grid out(outW, outH);
    for (std::int32_t m = 0; m < outH; ++m)
        for (std::int32_t n = 0; n < outW; ++n)
            for (std::int32_t j = 0; j < 10; ++j)
                for (std::int32_t i = 0; i < 10; ++i)
                    out.at(n, m) +=
                        double{columnTaps[j]} * double{rowTaps[i]} *
                        in.at(wrap(2 * n + 5 - i, in.width), wrap(2 * m + 5 - j, in.height));
    return out;
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

// All four trees over two levels, before and after they are combined, padded tile included.
TEST(CDTDWT2d, BandsAreTheDefinedSums) {
    struct Case {
        std::int32_t width, height;
    };
    for (const Case& c : {Case{32, 24}, Case{29, 18}}) {
        GIMG<float> tile(c.width, c.height);
        fillNoise(tile, 3);
        CDTDWT2d transform({c.width, c.height}, 2);
        ASSERT_EQ(transform.loadImage(tile.data, tile.stepBytes, tile.roi()), 0);
        ASSERT_EQ(transform.forward(), 0);
        Grid source(c.width, c.height);
        for (std::int32_t y = 0; y < c.height; ++y)
            for (std::int32_t x = 0; x < c.width; ++x)
                source.at(x, y) = double{*tile.at(x, y)};
        std::vector<Grid> in(4, source);
        for (std::int32_t j = 0; j < 2; ++j) {
            const std::int32_t w = transform.levelSize(j).width / 2;
            const std::int32_t h = transform.levelSize(j).height / 2;
            const auto slow = [&](std::int32_t tree, std::int32_t kind) {
                return slowBand(in[static_cast<std::size_t>(tree)], w, h, j, tree / 2,
                                (kind - 1) / 2, tree % 2, (kind - 1) % 2);
            };
            for (const SubbandKind kind : {lowHigh, highLow, highHigh}) {
                Grid t00 = slow(0, kind), t01 = slow(1, kind), t10 = slow(2, kind),
                     t11 = slow(3, kind);
                for (std::int32_t o = 0; o < waveletOrientations; ++o) {
                    if (orientationSlots[o].kind != kind)
                        continue;
                    const bool second = orientationSlots[o].b == 1;
                    GIMG<float> size(w, h);
                    transform.magnitude(j, o, size);
                    for (std::int32_t y = 0; y < h; ++y)
                        for (std::int32_t x = 0; x < w; ++x) {
                            const double re = (second ? t01.at(x, y) + t10.at(x, y)
                                                      : t00.at(x, y) + t11.at(x, y)) *
                                              std::sqrt(0.5);
                            const double im = (second ? t00.at(x, y) - t11.at(x, y)
                                                      : t01.at(x, y) - t10.at(x, y)) *
                                              std::sqrt(0.5);
                            ASSERT_NEAR(*transform.getBand(j, o, true).at(x, y), re, 3e-6);
                            ASSERT_NEAR(*transform.getBand(j, o, false).at(x, y), im, 3e-6);
                            ASSERT_NEAR(*size.at(x, y), std::hypot(re, im), 3e-6);
                        }
                }
            }
            for (std::int32_t tree = 0; tree < 4; ++tree) {
                Grid low = slow(tree, lowLow);
                for (std::int32_t y = 0; y < h; ++y)
                    for (std::int32_t x = 0; x < w; ++x)
                        ASSERT_NEAR(*transform.band(j, tree / 2, tree % 2, lowLow)->at(x, y),
                                    low.at(x, y), 3e-6);
                in[static_cast<std::size_t>(tree)] = low;
            }
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
    const auto clear = [](GIMG<float>& plane) {
        for (std::int32_t y = 0; y < plane.height; ++y)
            std::ranges::fill(plane.row(y), 0.0f);
    };
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
    LevelScratch scratch;
    EXPECT_EQ(CDTDWT2d::analyseLevel(scratch, true, 0, 0, in, half, half, half, odd), 2);
    EXPECT_EQ(CDTDWT2d::analyseLevel(scratch, true, 0, 0, oddIn, odd, odd, odd, odd), 2);
    EXPECT_EQ(CDTDWT2d::analyseLevel(scratch, true, 2, 0, in, half, half, half, half), 4);
    EXPECT_EQ(CDTDWT2d::synthesiseLevel(scratch, true, 0, -1, half, half, half, half, in), 4);
    EXPECT_EQ(CDTDWT2d({64, 64}, 2, BandSet::restored).forward(), 2);
}

} // namespace
} // namespace kt7
