#include "qxenhlib/CDTDWT2dDnCbCr.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "qxenhlib/noiseShape.h"
#include "tests/support/targets.h"

namespace kt7 {
namespace {

constexpr float norms[4] = {1.6085f, 1.5959f, 1.5962f, 1.5959f};

// Smooth colour, an edge and noise that grows along x, so that every part of the gain curve is met.
void paint(GIMG<float>& tile, unsigned seed) {
    std::mt19937 random(seed);
    std::normal_distribution<float> normal;
    for (std::int32_t y = 0; y < tile.height; ++y)
        for (std::int32_t x = 0; x < tile.width; ++x)
            *tile.at(x, y) =
                0.1f * std::sin(0.05f * static_cast<float>(x + y)) +
                (x + 2 * y > tile.width ? 0.2f : 0.0f) +
                0.08f * normal(random) * static_cast<float>(x) / static_cast<float>(tile.width);
}

struct Tiles {
    GIMG<float> y, cb, cr;
    Tiles(std::int32_t w, std::int32_t h) : y(w, h), cb(w, h), cr(w, h) {
        paint(y, 1);
        paint(cb, 2);
        paint(cr, 3);
    }
};

struct Sigmas {
    float cb, cr, y;
};

// The same by whole transforms, band by band and orientation by orientation.
void denoiseByBands(const CDTDWT2dDnCbCr& rules, Tiles& tiles, const Sigmas& sigma,
                    float chromaShape, float lumaShape) {
    const PrimSize size = tiles.y.roi();
    CDTDWT2d luma(size, rules.levels), cb(size, rules.levels), cr(size, rules.levels);
    luma.loadImage(tiles.y.data, tiles.y.stepBytes, size);
    luma.forward();
    float lumaCurve[6], chromaCurve[6];
    noiseShape(lumaShape, lumaCurve);
    noiseShape(chromaShape, chromaCurve);
    const auto ramp = [](GIMG<float>& plane, float t, float k) {
        for (std::int32_t y = 0; y < plane.height; ++y)
            for (float& m : plane.row(y))
                m = (m - t) * (1.0f / (k * t + 1e-15f));
    };
    struct Chroma {
        CDTDWT2d& transform;
        GIMG<float>& tile;
        float sigma;
    };
    for (const Chroma& c : {Chroma{cb, tiles.cb, sigma.cb}, Chroma{cr, tiles.cr, sigma.cr}}) {
        c.transform.loadImage(c.tile.data, c.tile.stepBytes, size);
        c.transform.forward();
        for (std::int32_t j = 0; j < rules.levels; ++j)
            for (std::int32_t o = 0; o < waveletOrientations; ++o) {
                GIMG<float>& re = c.transform.getBand(j, o, true);
                GIMG<float>& im = c.transform.getBand(j, o, false);
                GIMG<float> fromLuma(re.width, re.height), gain(re.width, re.height);
                luma.magnitude(j, o, fromLuma);
                ramp(fromLuma, sigma.y / norms[j] * lumaCurve[j], rules.lumaRamp);
                c.transform.magnitude(j, o, gain);
                ramp(gain, c.sigma / norms[j] * chromaCurve[j], rules.chromaRamp);
                const bool lumaOnly = rules.useLumaGain[j] && !rules.useChromaGain[j];
                const bool chromaOnly = !rules.useLumaGain[j] && rules.useChromaGain[j];
                for (std::int32_t y = 0; y < re.height; ++y)
                    for (std::int32_t x = 0; x < re.width; ++x) {
                        const float l = *fromLuma.at(x, y), g = *gain.at(x, y);
                        const float chosen = lumaOnly ? l : chromaOnly ? g : std::max(l, g);
                        const float held = std::clamp(chosen, 0.0f, rules.gainCap[j]);
                        *re.at(x, y) *= held;
                        *im.at(x, y) *= held;
                    }
            }
        c.transform.inverse();
        c.transform.storeImage(c.tile.data, c.tile.stepBytes, size);
    }
}

double greatestDifference(const GIMG<float>& a, const GIMG<float>& b) {
    double greatest = 0;
    for (std::int32_t y = 0; y < a.height; ++y)
        for (std::int32_t x = 0; x < a.width; ++x)
            greatest = std::max(greatest, std::abs(double{*a.at(x, y)} - double{*b.at(x, y)}));
    return greatest;
}

// Reused for a second tile with other kernels, at several thread counts, with padding, with other
// rules.
class ChromaKernels : public test::OnTarget {};
KT7_ON_EVERY_TARGET(ChromaKernels);

TEST_P(ChromaKernels, EqualTheWorkOnWholeBands) {
    struct Case {
        std::int32_t width, height, threads;
        Sigmas sigma;
        float shape;
        std::int32_t flags; // bits 0, 1: luma, chroma swapped at the level of the case
        std::int32_t level;
    };
    const Sigmas usual{0.03f, 0.05f, 0.04f};
    for (const Case& c :
         {Case{96, 64, 1, usual, 0.13f, 0, 0}, Case{160, 192, 2, usual, 0.13f, 0, 0},
          Case{133, 171, 4, usual, 0.55f, 0, 0}, Case{17, 31, 2, usual, 1.2f, 0, 0},
          Case{96, 64, 2, {0.05f, 0.0f, 0.03f}, 0.13f, 0, 0},
          Case{96, 64, 2, {0.05f, 0.02f, 0.0f}, 0.13f, 0, 0}, Case{70, 64, 2, usual, 0.13f, 1, 2},
          Case{70, 64, 2, usual, 0.13f, 3, 3}, Case{96, 64, 2, usual, 0.13f, 3, 1},
          Case{96, 64, 2, usual, 0.13f, 3, 0}, Case{96, 64, 2, usual, 0.13f, 1, 0}}) {
        const std::int32_t before = omp_get_max_threads();
        omp_set_num_threads(c.threads);
        CDTDWT2dDnCbCr denoiser;
        ASSERT_EQ(denoiser.setup(c.width, c.height, 4), 0);
        denoiser.useLumaGain[c.level] ^= (c.flags & 1) != 0;
        denoiser.useChromaGain[c.level] ^= (c.flags & 2) != 0;
        for (std::int32_t turn = 0; turn < 2; ++turn) {
            selectKernels(turn == 0 ? CpuTarget::generic : GetParam());
            Tiles fast(c.width, c.height), slow(c.width, c.height);
            ASSERT_EQ(denoiser.denoiseC(fast.y, fast.cb, fast.cr, c.sigma.cb, c.sigma.cr, c.shape,
                                        c.sigma.y, 0.3f),
                      0);
            denoiseByBands(denoiser, slow, c.sigma, c.shape, 0.3f);
            EXPECT_LT(greatestDifference(fast.cb, slow.cb), 2e-6) << c.width << ' ' << c.flags;
            EXPECT_LT(greatestDifference(fast.cr, slow.cr), 2e-6) << c.width << ' ' << c.flags;
            EXPECT_EQ(greatestDifference(fast.y, slow.y), 0.0);
        }
        omp_set_num_threads(before);
    }
}

TEST(CDTDWT2dDnCbCr, RemovesColourNoiseAndKeepsFlatColour) {
    constexpr std::int32_t side = 128;
    GIMG<float> y(side, side), cb(side, side), cr(side, side);
    std::mt19937 random(4);
    std::normal_distribution<float> normal;
    for (std::int32_t i = 0; i < side * side; ++i) {
        *y.at(i % side, i / side) = 0.5f;
        *cb.at(i % side, i / side) = 0.2f + 0.01f * normal(random);
        *cr.at(i % side, i / side) = -0.3f;
    }
    CDTDWT2dDnCbCr denoiser;
    ASSERT_EQ(denoiser.setup(side, side, 4), 0);
    ASSERT_EQ(denoiser.denoiseC(y, cb, cr, 0.04f, 0.04f, 0.13f, 0.05f, 0.13f), 0);
    double sum = 0, squares = 0;
    for (std::int32_t i = 0; i < side * side; ++i) {
        const double v = double{*cb.at(i % side, i / side)} - 0.2;
        sum += v;
        squares += v * v;
        ASSERT_NEAR(*cr.at(i % side, i / side), -0.3f, 1e-5f);
    }
    EXPECT_LT(std::abs(sum) / (side * side), 5e-4);
    // What stays is the coarsest low-pass band, a 256th of the noise energy.
    EXPECT_LT(squares / (side * side), 1e-4 / 100);
}

TEST(CDTDWT2dDnCbCr, RefusesTilesOfAnotherSizeAndBadLevels) {
    CDTDWT2dDnCbCr denoiser;
    ASSERT_EQ(denoiser.setup(64, 48, 4), 0);
    Tiles tiles(64, 50), copy(64, 50);
    EXPECT_EQ(denoiser.denoiseC(tiles.y, tiles.cb, tiles.cr, 1, 1, 0.13f, 1, 0.13f), 4);
    EXPECT_EQ(greatestDifference(tiles.cb, copy.cb), 0.0);
    EXPECT_THROW(denoiser.setup(64, 48, 8), int);
    EXPECT_EQ(denoiser.width, 0);
    ASSERT_EQ(denoiser.setup(64, 50, 0), 0);
    EXPECT_EQ(denoiser.denoiseC(tiles.y, tiles.cb, tiles.cr, 1, 1, 0.13f, 1, 0.13f), 0);
    EXPECT_EQ(greatestDifference(tiles.cb, copy.cb), 0.0);
}

TEST(NoiseShape, FallsTowardsTheFineLevelsAndIsHeldAtItsEnds) {
    float low[6], high[6], before[6], now[6];
    noiseShape(0.2f, low);
    noiseShape(-3.0f, now);
    EXPECT_TRUE(std::equal(low, low + 6, now));
    noiseShape(5.0f, high);
    noiseShape(std::nanf(""), now);
    EXPECT_TRUE(std::equal(high, high + 6, now));
    EXPECT_FLOAT_EQ(high[0], 0.0090f);
    noiseShape(0.55f, now); // halfway between the rows of 0.5 and 0.6
    EXPECT_NEAR(now[0], 0.45840f, 1e-5f);
    EXPECT_NEAR(now[3], 0.97995f, 1e-5f);
    noiseShape(0.2f, before);
    for (float shape = 0.21f; shape < 2.1f; shape += 0.01f) {
        noiseShape(shape, now);
        for (std::int32_t j = 0; j < 6; ++j) {
            EXPECT_LE(now[j], before[j]);
            EXPECT_LE(before[j] - now[j], 0.03f); // no jump between rows
            EXPECT_LE(now[std::max(j - 1, 0)], now[j] + 0.002f);
        }
        std::copy_n(now, 6, before);
    }
}

} // namespace
} // namespace kt7
