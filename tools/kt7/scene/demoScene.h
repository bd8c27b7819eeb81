// A colour picture of our own, with the noise of a camera on request: ground truth for the demo,
// for tests and for benchmarks. No dependency beyond the C++ library; the same bytes on every
// machine.
#pragma once

#include <cstdint>
#include <vector>

namespace kt7 {

/// Interleaved RGB, display-encoded, 0..1.
struct DemoImage {
    int width = 0;
    int height = 0;
    std::vector<float> rgb;
};

/// A lake at the foot of mountains: smooth gradients (sky, haze, balloons), edges and saturated
/// colours (balloons, house, colour chart), fine texture (grass, forest, bricks, ripples) and
/// text-like detail (sign, ruler, star). Objects scale with the height; texture keeps its size in
/// pixels. Sides of 16 and above.
DemoImage renderDemoScene(int width, int height);

/// Noise of a sensor in linear light: variance = shot * light + read^2, with light and result on
/// the scale where 1 saturates the sensor.
struct SensorNoise {
    float shot = 0.0075f;
    float read = 0.008f;
    /// Noise arises at the sites of a Bayer pattern and is interpolated with the colours, so it is
    /// coarser than white noise, as in a camera's picture; else every sample has its own.
    bool mosaic = true;
    std::uint64_t seed = 1;
};

/// Adds noise and holds the result to 0..1. The same seed gives the same noise.
DemoImage addSensorNoise(const DemoImage& clean, const SensorNoise& noise);

/// The picture on 0..255, rounded to the nearest value.
std::vector<std::uint8_t> toRgb8(const DemoImage& image);

/// Peak signal-to-noise ratio in dB of two 8-bit pictures of the same length.
double psnr8(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b);

} // namespace kt7
