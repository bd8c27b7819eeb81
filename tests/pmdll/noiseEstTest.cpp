// The noise estimate as a host calls it, and the reduced copy it measures.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "include/kt7lib/kt7lib.h"
#include "pmdll/src/decimate.h"
#include "qxutils/NoiseNormalize.h"
#include "qxutils/floatMode.h"

namespace kt7 {
namespace {

/// RGB image of one sample type, rows padded by 10 bytes.
template <class Sample>
struct Image {
    Image(std::int32_t width, std::int32_t height)
        : rowSamples(static_cast<std::size_t>(width) * 3 + 10 / sizeof(Sample)),
          samples(rowSamples * static_cast<std::size_t>(height)),
          record{sizeof(Sample) == 1 ? 1 : 3, samples.data(),
                 static_cast<std::int32_t>(rowSamples * sizeof(Sample)), width, height} {}

    Sample& at(std::int32_t x, std::int32_t y, std::int32_t c) {
        return samples[static_cast<std::size_t>(y) * rowSamples +
                       static_cast<std::size_t>(3 * x + c)];
    }

    /// Grey ramp over the whole range with white noise of deviation sigma (of full scale).
    void fillNoisyRamp(double sigma) {
        std::mt19937 random(5);
        std::normal_distribution<double> normal;
        const double top = sizeof(Sample) == 1 ? 255 : 32767;
        for (std::int32_t y = 0; y < record.height; ++y)
            for (std::int32_t x = 0; x < record.width; ++x)
                for (std::int32_t c = 0; c < 3; ++c) {
                    const double v = (x + 0.5) / record.width + sigma * normal(random);
                    at(x, y, c) = static_cast<Sample>(std::clamp(v * top + 0.5, 0.0, top));
                }
    }

    std::size_t rowSamples;
    std::vector<Sample> samples;
    PSImage record;
};

void expectDefaults(const QxNoiseLevels& levels) {
    for (const float level :
         {levels.lumaMid, levels.chromaU, levels.chromaV, levels.lumaLow, levels.lumaHigh})
        EXPECT_EQ(level, 1e-5f);
    EXPECT_EQ(levels.noiseGrain, 0.3f);
}

template <class Sample>
class NoiseEst : public testing::Test {};
using SampleTypes = testing::Types<std::uint8_t, std::uint16_t>;
TYPED_TEST_SUITE(NoiseEst, SampleTypes);

TYPED_TEST(NoiseEst, WhiteNoiseOnAllChannels) {
    Image<TypeParam> image(1200, 800);
    for (const double sigma : {0.01, 0.03}) {
        const auto level = static_cast<float>(sigma);
        image.fillNoisyRamp(sigma);
        const auto before = image.samples;
        QxNoiseLevels levels;
        ASSERT_EQ(qxKt7NoiseEst(&image.record, &levels), 1);
        // Deviations of Y, U and V when R, G and B have deviation 1. The tables' slope counts
        // twice, and the flattest pixels of pure noise have a little less of it than the rest.
        const double slope = double{NoiseNormalize().setup(level, level, level, 0.95f)} / sigma;
        const double unit = sigma * slope * slope;
        EXPECT_NEAR(double{levels.lumaMid} / unit, 0.92 * 0.669, 0.04);
        EXPECT_NEAR(double{levels.chromaU} / unit, 0.543, 0.054);
        EXPECT_NEAR(double{levels.chromaV} / unit, 0.808, 0.08);
        EXPECT_NEAR(levels.lumaLow / levels.lumaMid, 1.0, 0.25);
        EXPECT_NEAR(levels.lumaHigh / levels.lumaMid, 1.0, 0.25);
        EXPECT_EQ(levels.noiseGrain, 0.3f);
        EXPECT_EQ(image.samples, before);
    }
}

TYPED_TEST(NoiseEst, SmallestImage) {
    Image<TypeParam> image(148, 149);
    image.fillNoisyRamp(0.02);
    QxNoiseLevels levels;
    EXPECT_EQ(qxKt7NoiseEst(&image.record, &levels), 1);
    EXPECT_GT(levels.lumaMid, 1e-3f);
    for (const auto& [width, height] : {std::pair{147, 149}, {148, 147}, {1, 1}}) {
        PSImage part = image.record;
        part.width = width;
        part.height = height;
        EXPECT_EQ(qxKt7NoiseEst(&part, &levels), 0);
        expectDefaults(levels);
    }
}

TYPED_TEST(NoiseEst, UnusableImagesAreRefused) {
    Image<TypeParam> image(200, 200);
    PSImage spoilt[5] = {image.record, image.record, image.record, image.record, image.record};
    spoilt[0].data = nullptr;
    spoilt[1].width = 0;
    spoilt[2].height = -5;
    spoilt[3].rowBytes = static_cast<std::int32_t>(200 * 3 * sizeof(TypeParam)) - 1;
    spoilt[4].width = 0x7fffffff;
    for (PSImage* record : {&spoilt[0], &spoilt[1], &spoilt[2], &spoilt[3], &spoilt[4],
                            static_cast<PSImage*>(nullptr)}) {
        QxNoiseLevels levels{};
        EXPECT_EQ(qxKt7NoiseEst(record, &levels), 0);
        expectDefaults(levels);
    }
    EXPECT_EQ(qxKt7NoiseEst(&image.record, nullptr), 0);
}

TYPED_TEST(NoiseEst, LeavesTheFloatingPointModeAlone) {
    Image<TypeParam> image(200, 200);
    const std::uint64_t mode = flushDenormals();
    for (const bool flushing : {true, false}) {
        if (!flushing)
            restoreFloatMode(mode & ~std::uint64_t{0x8040});
        volatile float least = 1.2e-38f;
        const float before = least / 4.0f;
        QxNoiseLevels levels;
        qxKt7NoiseEst(&image.record, &levels);
        EXPECT_EQ(least / 4.0f, before);
        EXPECT_EQ(before == 0.0f, flushing);
    }
    restoreFloatMode(mode);
}

TYPED_TEST(NoiseEst, ReducedCopyHoldsEveryFourthPixel) {
    Image<TypeParam> image(161, 149);
    for (std::int32_t y = 0; y < 149; ++y)
        for (std::int32_t x = 0; x < 161; ++x)
            for (std::int32_t c = 0; c < 3; ++c)
                image.at(x, y, c) = static_cast<TypeParam>(x * 251 + y * 7 + c * 13000);
    std::unique_ptr<std::uint16_t[]> buffer;
    std::int32_t step = 0, width = 0, height = 0;
    ASSERT_EQ(kt7DecPSImage(&image.record, 4, &buffer, &step, &width, &height), 1);
    EXPECT_EQ(width, 35);
    EXPECT_EQ(height, 32);
    EXPECT_EQ(step, 224);
    for (std::int32_t y = 0; y < height; ++y)
        for (std::int32_t x = 0; x < width; ++x)
            for (std::int32_t c = 0; c < 3; ++c) {
                const int sample = image.at(16 + 4 * x, 16 + 4 * y, c);
                ASSERT_EQ(buffer[static_cast<std::size_t>(y * step / 2 + 3 * x + c)],
                          sizeof(TypeParam) == 1 ? sample * 128 : std::min(sample, 32767));
            }
}

} // namespace
} // namespace kt7
