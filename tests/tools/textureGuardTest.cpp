#include "tools/kt7/textureGuard.h"

#include "tools/kt7/files/photo.h"
#include "tools/kt7/library.h"
#include "tools/kt7/scene/demoScene.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>

namespace kt7::tool {
namespace {

/// A grey photo of value(x, y), 0..255, with white noise.
Photo photoOf(int width, int height, double sigma, const std::function<double(int, int)>& value) {
    Photo photo;
    photo.width = width;
    photo.height = height;
    std::mt19937 random(5);
    std::normal_distribution<double> noise(0.0, 1.0);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const double v = std::clamp(value(x, y) + sigma * noise(random), 0.0, 255.0);
            photo.samples.insert(photo.samples.end(), 3,
                                 static_cast<std::uint16_t>(std::lround(v)));
        }
    return photo;
}

/// Fine weave; beside it a smooth slope.
double cloth(int x, int y) {
    return 120.0 + 40.0 * std::sin(1.9 * x) * std::sin(2.3 * y + 0.1 * x);
}
double clothAndWall(int x, int y) {
    return x < 200 ? cloth(x, y) : 90.0 + 0.1 * x + 0.05 * y;
}

TEST(TextureGuard, KeepsTheLevelOfNoise) {
    for (const double sigma : {2.0, 10.0, 20.0}) {
        Photo photo = photoOf(400, 300, sigma, [](int x, int) { return 100.0 + 0.1 * x; });
        const NoiseFloor floor = noiseFloorOf(photo);
        ASSERT_TRUE(floor.measured);
        EXPECT_NEAR(floor.level * 255.0f, sigma, 0.1 * sigma);
        EXPECT_NEAR(floor.fineness, 1.0f, 0.1f);
        const QxNoiseLevels measured = estimateNoise(photo).levels;
        const QxNoiseLevels used = guardedLevels(measured, floor, 2.0f);
        EXPECT_FLOAT_EQ(used.lumaMid, measured.lumaMid * 2.0f * fineFactors.luma);
        EXPECT_FLOAT_EQ(used.chromaU, measured.chromaU * 2.0f * fineFactors.chroma);
    }
}

TEST(TextureGuard, HoldsTextureToTheCalmestPlaces) {
    constexpr float sigma = 1.0f;
    Photo photo = photoOf(400, 300, sigma, clothAndWall);
    const QxNoiseLevels measured{0.04f, 0.02f, 0.02f, 0.3f, 0.01f, 0.5f}; // as texture would read
    const QxNoiseLevels used = guardedLevels(measured, noiseFloorOf(photo), 1.0f);
    EXPECT_LT(used.lumaMid * 255.0f, 1.3f * sigma * fineFactors.luma);
    EXPECT_GT(used.lumaMid * 255.0f, 0.9f * sigma * fineFactors.luma);
    EXPECT_NEAR(used.chromaU / used.lumaMid * fineFactors.luma / fineFactors.chroma, 0.5f, 1e-3f);
    EXPECT_LT(used.lumaLow, 2.0f * used.lumaMid);
    EXPECT_EQ(used.noiseGrain, 0.5f);

    // The same at 16 bits.
    Photo deep = photo;
    deep.bits = 16;
    for (std::uint16_t& v : deep.samples)
        v = static_cast<std::uint16_t>(v * 257);
    EXPECT_NEAR(noiseFloorOf(deep).level, noiseFloorOf(photo).level, 1e-4f);
}

TEST(TextureGuard, LeavesOutFramesBurntPlacesAndSmallPhotos) {
    const auto framed = [](int x, int y) { return x < 150 ? 0.0 : y < 100 ? 255.0 : 120.0; };
    Photo photo = photoOf(600, 400, 0.0, framed);
    EXPECT_FALSE(noiseFloorOf(photo).measured);
    // Noise in the middle part only, as of a photo in a drawn frame.
    const Photo noisy = photoOf(600, 400, 6.0, [](int, int) { return 120.0; });
    for (int y = 100; y < 400; ++y)
        for (std::size_t x = 200; x < 600; ++x)
            for (std::size_t c = 0; c < 3; ++c) {
                const std::size_t at = (static_cast<std::size_t>(y) * 600 + x) * 3 + c;
                photo.samples[at] = noisy.samples[at];
            }
    EXPECT_NEAR(noiseFloorOf(photo).level * 255.0f, 6.0f, 1.0f);

    const Photo small = photoOf(64, 48, 5.0, [](int, int) { return 120.0; });
    const NoiseFloor none = noiseFloorOf(small);
    EXPECT_FALSE(none.measured);
    const QxNoiseLevels measured{0.02f, 0.02f, 0.02f, 0.1f, 0.02f, 0.0f};
    EXPECT_FLOAT_EQ(guardedLevels(measured, none, 1.0f).lumaLow, 0.1f * fineFactors.luma);
}

TEST(TextureGuard, DefaultsGainOnTheDemoScene) {
    const DemoImage scene = renderDemoScene(defaults::demoWidth, defaults::demoHeight);
    Photo photo;
    photo.width = scene.width;
    photo.height = scene.height;
    const Bytes clean = toRgb8(scene), noisy = toRgb8(addSensorNoise(scene, SensorNoise{}));
    photo.samples.assign(noisy.begin(), noisy.end());
    removeNoise(photo, {.levels = blindLevels(photo, {}).levels, .fast = true}, [](double) {});
    EXPECT_GT(psnr8(clean, screenRgb(photo)) - psnr8(clean, noisy), 1.7);
}

} // namespace
} // namespace kt7::tool
