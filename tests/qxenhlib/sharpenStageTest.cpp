#include "qxenhlib/sharpenStage.h"

#include <gtest/gtest.h>

#include <cmath>

#include "qxenhlib/LRDeconv.h"

namespace kt7 {
namespace {

TEST(LRDeconv, KernelAndMarginFollowSigma) {
    struct Case {
        float sigma;
        std::int32_t side, margin;
    };
    // As single precision numbers 0.9 and 1.4 lie just below, 0.6 just above what they stand for.
    for (const Case& c : {Case{0.31f, 3, 4}, Case{0.6f, 5, 4}, Case{0.65f, 5, 5}, Case{0.9f, 5, 5},
                          Case{0.91f, 7, 5}, Case{1.0f, 7, 6}, Case{1.4f, 7, 6}, Case{1.41f, 9, 6},
                          Case{1.5f, 9, 8}, Case{2.0f, 9, 8}}) {
        LRDeconv d;
        d.init(c.sigma, 3, -1.0f);
        ASSERT_EQ(d.kernelSize, c.side) << c.sigma;
        EXPECT_EQ(d.threshold, 0.0001f);
        double sum = 0.0;
        const std::int32_t last = c.side * c.side - 1;
        for (std::int32_t i = 0; i <= last; ++i) {
            sum += double{d.kernel[i]};
            EXPECT_EQ(d.kernel[i], d.kernel[last - i]);
            EXPECT_EQ(d.kernel[i], d.kernel[i % c.side * c.side + i / c.side]);
        }
        EXPECT_NEAR(sum, 1.0, 1e-6);
        const auto centre = d.kernel[last / 2], beside = d.kernel[last / 2 + 1];
        EXPECT_NEAR(std::log(centre / beside), 0.5f / (c.sigma * c.sigma), 1e-5f);

        // An impulse beside the margin is sharpened, one in it is copied.
        GIMG<float> in(64, 64), out(64, 64);
        for (std::int32_t y = 0; y < 64; ++y)
            for (std::int32_t x = 0; x < 64; ++x)
                *in.at(x, y) = x == c.margin - 1 || x == 63 - c.margin || y == 32 ? 0.6f : 0.3f;
        d.apply(in, out);
        EXPECT_EQ(*out.at(c.margin - 1, 20), 0.6f);
        EXPECT_EQ(*out.at(c.margin - 1, 32), 0.6f);
        EXPECT_NE(*out.at(63 - c.margin, 20), 0.6f);
        EXPECT_EQ(*out.at(64 - c.margin, 20), 0.3f);
        EXPECT_EQ(*out.at(40, c.margin - 1), 0.3f);
    }
}

TEST(SharpenStage, FlatPlanesStayFlat) {
    for (const std::int16_t level : {std::int16_t{0}, std::int16_t{-900}, std::int16_t{12000}}) {
        GIMG<std::int16_t> luma(310, 256);
        for (std::int32_t y = 0; y < luma.height; ++y)
            std::ranges::fill(luma.row(y), level);
        sharpenLuma(luma, 1.0f);
        for (std::int32_t y = 40; y < luma.height - 40; ++y)
            for (std::int32_t x = 40; x < luma.width - 40; ++x)
                ASSERT_NEAR(*luma.at(x, y), std::max<std::int16_t>(level, 0), 2) << x << ' ' << y;
    }
}

// A pattern blurred by the kernel's own Gaussian comes close to what it was, across seams too.
TEST(SharpenStage, TakesABlurOut) {
    constexpr std::int32_t width = 500, height = 256;
    constexpr float sharpen = 0.5f;
    GIMG<std::int16_t> luma(width, height);
    const double attenuation = std::exp(-0.64 * std::pow(2 * M_PI / 8, 2) / 2);
    const auto wave = [](std::int32_t x) { return 3000.0 * std::sin(2 * M_PI * x / 8); };
    for (std::int32_t y = 0; y < height; ++y)
        for (std::int32_t x = 0; x < width; ++x)
            *luma.at(x, y) = static_cast<std::int16_t>(10000 + attenuation * wave(x));
    sharpenLuma(luma, sharpen);
    for (std::int32_t y = 60; y < height - 60; ++y)
        for (std::int32_t x = 60; x < width - 60; ++x)
            ASSERT_NEAR(*luma.at(x, y), 10000 + wave(x), 100) << x << ' ' << y;
}

} // namespace
} // namespace kt7
