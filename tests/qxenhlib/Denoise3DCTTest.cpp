#include "qxenhlib/Denoise3DCT.h"

#include <gtest/gtest.h>

#include <limits>

#include "qxenhlib/thresholdTables.h"
#include "qxutils/qxbase/QXRC.h"

namespace kt7 {
namespace {

TEST(ThresholdTables, AreSymmetricAndFallWithTheGrain) {
    float table[64], previous[64];
    for (std::int32_t level = 0; level < 4; ++level) {
        for (float grain = 0.0f; grain <= 2.0f; grain += 0.25f) {
            fillThresholdTable(grain, level, table);
            for (std::int32_t u = 0; u < 8; ++u)
                for (std::int32_t v = 0; v < 8; ++v) {
                    const float entry = table[8 * u + v];
                    ASSERT_GT(entry, 0.0f);
                    ASSERT_LT(entry, 1.02f);
                    ASSERT_EQ(entry, table[8 * v + u]);
                    // Coarse grain takes the fine frequencies away.
                    if (grain > 0.0f && u + v > 7) {
                        ASSERT_LT(entry, previous[8 * u + v] * 1.02f);
                    }
                }
            std::copy_n(table, 64, previous);
        }
    }
    // White noise has its full size at the fine frequencies of the finest level.
    fillThresholdTable(0.0f, 0, table);
    EXPECT_NEAR(table[63], 1.0f, 0.01f);
    EXPECT_NEAR(table[0], 0.384f, 0.001f);
    fillThresholdTable(2.0f, 3, table);
    EXPECT_EQ(table[0], 0.113833f);
    EXPECT_EQ(table[63], 0.008286f);
    EXPECT_EQ(table[8 * 2 + 5], 0.048549f);
}

TEST(ThresholdTables, MixNeighbouringSetsContinuously) {
    float below[64], above[64];
    for (const float node : {0.0f, 0.5f, 1.0f, 1.5f, 2.0f}) {
        fillThresholdTable(node, 1, below);
        fillThresholdTable(node + 1e-6f, 1, above);
        for (std::int32_t i = 0; i < 64; ++i)
            ASSERT_NEAR(below[i], above[i], 1e-5f) << node;
    }
    float first[64], middle[64], second[64];
    fillThresholdTable(0.5f, 2, first);
    fillThresholdTable(0.75f, 2, middle);
    fillThresholdTable(1.0f, 2, second);
    for (std::int32_t i = 0; i < 64; ++i)
        ASSERT_NEAR(middle[i], 0.5f * (first[i] + second[i]), 1e-6f);
    const float inf = std::numeric_limits<float>::infinity();
    for (const auto& [grain, same] : {std::pair{-1.0f, 0.0f},
                                      {-inf, 0.0f},
                                      {std::numeric_limits<float>::quiet_NaN(), 0.0f},
                                      {inf, 2.0f},
                                      {7.0f, 2.0f}}) {
        fillThresholdTable(grain, 0, below);
        fillThresholdTable(same, 0, above);
        for (std::int32_t i = 0; i < 64; ++i)
            ASSERT_EQ(below[i], above[i]) << grain;
    }
}

TEST(Denoise3DCT, RefusesWhatItCannotRun) {
    Denoise3DCT denoiser;
    EXPECT_THROW(denoiser.run(), QxBase::QXRC);
    GIMG<std::int16_t> narrow(255, 256);
    EXPECT_EQ(denoiser.addChannel(narrow), 4);
    EXPECT_EQ(denoiser.pyramids[0], nullptr);

    Denoise3DCT full;
    for (std::int32_t c = 0; c < 4; ++c) {
        GIMG<std::int16_t> plane(256, 256);
        for (std::int32_t y = 0; y < 256; ++y)
            std::ranges::fill(plane.row(y), std::int16_t{0});
        EXPECT_EQ(full.addChannel(plane), 0);
    }
    EXPECT_THROW(full.addChannel(narrow), QxBase::QXRC);
}

} // namespace
} // namespace kt7
