// Sensor noise and sample conversions. Integer arithmetic, + - * / and sqrt only: these round alike
// everywhere, unlike the functions of a mathematics library.
#include "tools/kt7/scene/demoScene.h"

#include <algorithm>
#include <cmath>

namespace kt7 {
namespace {

/// Steele, Lea and Flood 2014 (splitmix64): a counter turned into 64 good bits.
std::uint64_t mix(std::uint64_t counter) {
    counter = (counter + 1) * 0x9E3779B97F4A7C15u;
    counter = (counter ^ (counter >> 30)) * 0xBF58476D1CE4E5B9u;
    counter = (counter ^ (counter >> 27)) * 0x94D049BB133111EBu;
    return counter ^ (counter >> 31);
}

/// Standard normal to the eye: the sum of 12 uniform numbers, less its mean.
float gauss(std::uint64_t seed, std::uint64_t index) {
    std::uint32_t sum = 0;
    for (std::uint64_t part = 0; part < 3; ++part) {
        const std::uint64_t bits = mix(mix(seed) ^ (index * 3 + part));
        for (int shift = 0; shift < 64; shift += 16)
            sum += static_cast<std::uint32_t>((bits >> shift) & 0xFFFF);
    }
    return static_cast<float>(static_cast<std::int32_t>(sum) - 6 * 65535) / 65536.0f;
}

/// Bayer pattern R G / G B: the channel of a site.
int channelAt(int x, int y) {
    return (x & 1) + (y & 1);
}

/// Bilinear interpolation of one channel from its sites; sites beyond the picture take no part.
float demosaic(const std::vector<float>& sites, int width, int height, int x, int y, int channel) {
    float sum = 0.0f, weights = 0.0f;
    for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) {
            const int sx = x + dx, sy = y + dy;
            if (sx < 0 || sy < 0 || sx >= width || sy >= height || channelAt(sx, sy) != channel)
                continue;
            const float weight = static_cast<float>((dx == 0 ? 2 : 1) * (dy == 0 ? 2 : 1));
            sum += weight * sites[static_cast<std::size_t>(sy) * static_cast<std::size_t>(width) +
                                  static_cast<std::size_t>(sx)];
            weights += weight;
        }
    // A green site keeps its own value: its four diagonal neighbours only blur it.
    if (channel == 1 && channelAt(x, y) == 1)
        return sites[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                     static_cast<std::size_t>(x)];
    return sum / weights;
}

} // namespace

DemoImage addSensorNoise(const DemoImage& clean, const SensorNoise& noise) {
    DemoImage noisy = clean;
    const auto pixels =
        static_cast<std::size_t>(clean.width) * static_cast<std::size_t>(clean.height);
    std::vector<float> sites;
    if (noise.mosaic) {
        sites.resize(pixels);
        for (std::size_t i = 0; i < pixels; ++i)
            sites[i] = gauss(noise.seed, i);
    }
    std::size_t at = 0;
    for (int y = 0; y < clean.height; ++y)
        for (int x = 0; x < clean.width; ++x)
            for (int c = 0; c < 3; ++c, ++at) {
                // Encoding is a square root, near enough to a display's curve.
                const float light = clean.rgb[at] * clean.rgb[at];
                const float sigma = std::sqrt(noise.shot * light + noise.read * noise.read);
                const float n = noise.mosaic ? demosaic(sites, clean.width, clean.height, x, y, c)
                                             : gauss(noise.seed, at);
                noisy.rgb[at] = std::sqrt(std::clamp(light + sigma * n, 0.0f, 1.0f));
            }
    return noisy;
}

std::vector<std::uint8_t> toRgb8(const DemoImage& image) {
    std::vector<std::uint8_t> out(image.rgb.size());
    std::transform(image.rgb.begin(), image.rgb.end(), out.begin(),
                   [](float v) { return static_cast<std::uint8_t>(v * 255.0f + 0.5f); });
    return out;
}

double psnr8(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b) {
    double sum = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        const double d = static_cast<double>(a[i]) - b[i];
        sum += d * d;
    }
    return 10.0 * std::log10(255.0 * 255.0 * static_cast<double>(a.size()) / std::max(sum, 1e-9));
}

} // namespace kt7
