// The noise estimate as a host calls it, and the reduced copy it measures.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "pmdll/src/decimate.h"
#include "qxutils/NoiseNormalize.h"
#include "tests/support/hostImage.h"

namespace kt7 {
namespace {

using test::HostImage;

/// Grey ramp over the whole range with white noise of deviation sigma (of full scale).
template <class Image>
void fillNoisyRamp(Image& image, double sigma) {
    std::mt19937 random(5);
    std::normal_distribution<double> normal;
    image.fill([&](auto x, auto, auto) {
        return (x + 0.5) / image.record.width + sigma * normal(random);
    });
}

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
    HostImage<TypeParam> image(1200, 800);
    for (const double sigma : {0.01, 0.03}) {
        const auto level = static_cast<float>(sigma);
        fillNoisyRamp(image, sigma);
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
    HostImage<TypeParam> image(148, 149);
    fillNoisyRamp(image, 0.02);
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
    HostImage<TypeParam> image(200, 200);
    const auto refused = [](PSImage* record) {
        QxNoiseLevels levels{};
        EXPECT_EQ(qxKt7NoiseEst(record, &levels), 0);
        expectDefaults(levels);
    };
    refused(nullptr);
    constexpr auto tooFew = static_cast<std::int32_t>(200 * 3 * sizeof(TypeParam)) - 1;
    const auto& [format, data, rowBytes, width, height] = image.record;
    for (PSImage record : {PSImage{format, nullptr, rowBytes, width, height},
                           {format, data, rowBytes, 0, height},
                           {format, data, rowBytes, width, -5},
                           {format, data, tooFew, width, height},
                           {format, data, rowBytes, 0x7fffffff, height}})
        refused(&record);
    EXPECT_EQ(qxKt7NoiseEst(&image.record, nullptr), 0);
}

TYPED_TEST(NoiseEst, ReducedCopyHoldsEveryFourthPixel) {
    HostImage<TypeParam> image(161, 149);
    for (std::size_t i = 0; i < image.samples.size(); ++i)
        image.samples[i] = static_cast<TypeParam>(i * 251);
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
                ASSERT_EQ(buffer[y * step / 2 + 3 * x + c],
                          sizeof(TypeParam) == 1 ? sample * 128 : std::min(sample, 32767));
            }
}

} // namespace
} // namespace kt7
