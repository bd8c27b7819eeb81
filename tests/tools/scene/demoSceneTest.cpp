#include "tools/kt7/scene/demoScene.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace kt7 {
namespace {

struct Moments {
    double mean, deviation, neighbour; ///< neighbour: correlation with the sample to the right
};

Moments momentsOfGreen(const DemoImage& a, const DemoImage& b) {
    double sum = 0, squares = 0, pairs = 0;
    const std::size_t n = a.rgb.size() / 3 - 1;
    for (std::size_t i = 0; i < n; ++i) {
        const double d = static_cast<double>(b.rgb[3 * i + 1] - a.rgb[3 * i + 1]);
        const double next = static_cast<double>(b.rgb[3 * i + 4] - a.rgb[3 * i + 4]);
        sum += d;
        squares += d * d;
        pairs += d * next;
    }
    const double count = static_cast<double>(n);
    return {sum / count, std::sqrt(squares / count), pairs / squares};
}

DemoImage flat(float value) {
    DemoImage image{256, 256, {}};
    image.rgb.assign(256 * 256 * 3, value);
    return image;
}

TEST(DemoScene, IsTheSameEveryTimeAndUsesTheWholeScale) {
    const DemoImage scene = renderDemoScene(384, 256);
    ASSERT_EQ(scene.rgb.size(), 384u * 256u * 3u);
    const auto bytes = toRgb8(scene);
    EXPECT_EQ(bytes, toRgb8(renderDemoScene(384, 256)));
    const auto [low, high] = std::minmax_element(bytes.begin(), bytes.end());
    EXPECT_LT(*low, 16);
    EXPECT_GT(*high, 245);
    // A checksum of one machine would do for all: only exactly rounded arithmetic is used.
    std::uint32_t hash = 2166136261u;
    for (const std::uint8_t v : toRgb8(addSensorNoise(scene, SensorNoise{})))
        hash = (hash ^ v) * 16777619u;
    EXPECT_EQ(hash, 3273650519u);
}

TEST(DemoScene, NoiseFollowsTheSensor) {
    SensorNoise noise{.shot = 0.004f, .read = 0.01f, .mosaic = false, .seed = 7};
    for (const float value : {0.3f, 0.6f, 0.8f}) {
        const DemoImage clean = flat(value);
        const Moments m = momentsOfGreen(clean, addSensorNoise(clean, noise));
        // The square root of the encoding divides a small deviation by twice the value.
        const auto encoded = static_cast<double>(value);
        const double expected = std::sqrt(0.004 * encoded * encoded + 1e-4) / (2.0 * encoded);
        EXPECT_NEAR(m.deviation, expected, 0.03 * expected) << value;
        EXPECT_NEAR(m.mean, 0.0, 0.003);
        EXPECT_NEAR(m.neighbour, 0.0, 0.02);
    }
    const DemoImage clean = flat(0.6f);
    const DemoImage first = addSensorNoise(clean, noise);
    noise.seed = 8;
    EXPECT_NE(first.rgb, addSensorNoise(clean, noise).rgb);
    noise.mosaic = true;
    const Moments coarse = momentsOfGreen(clean, addSensorNoise(clean, noise));
    EXPECT_GT(coarse.neighbour, 0.2);
}

} // namespace
} // namespace kt7
