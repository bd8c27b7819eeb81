// Host-side images for tests: buffers exactly as large as the contract says, with padded rows.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "include/kt7lib/kt7lib.h"

namespace kt7::test {

/// A picture with edges, texture and gradients, 0..1, the same for every call.
inline double sceneAt(std::int32_t x, std::int32_t y, std::int32_t channel) {
    const double u = x, v = y;
    double value = 0.35 + 0.2 * std::sin(u / 37.0 + channel) + 0.15 * std::cos(v / 29.0 - channel);
    if ((x / 24 + y / 40) % 3 == 0)
        value += 0.15 - 0.1 * channel;
    value += 0.04 * std::sin(u * 0.9) * std::sin(v * 0.8);
    return value < 0.02 ? 0.02 : value > 0.98 ? 0.98 : value;
}

/// An image in a host's memory, 8-bit (Sample = uint8_t) or 16-bit on 0..32768.
template <class Sample>
struct HostImage {
    static constexpr std::int32_t padding = 7; // samples between a row's end and the next row
    static constexpr bool eightBit = sizeof(Sample) == 1;
    static constexpr double fullScale = eightBit ? 255.0 : 32768.0;
    static constexpr Sample paddingMark = 173;

    HostImage(std::int32_t w, std::int32_t h)
        : stride(w * 3 + padding),
          samples(static_cast<std::size_t>(stride) * static_cast<std::size_t>(h), paddingMark),
          record{eightBit ? 1 : 3, samples.data(),
                 stride * static_cast<std::int32_t>(sizeof(Sample)), w, h} {}
    HostImage(const HostImage& other)
        : stride(other.stride), samples(other.samples), record(other.record) {
        record.data = samples.data();
    }
    HostImage& operator=(const HostImage& other) {
        stride = other.stride;
        samples = other.samples;
        record = other.record;
        record.data = samples.data();
        return *this;
    }

    Sample& at(std::int32_t x, std::int32_t y, std::int32_t c) {
        return samples[static_cast<std::size_t>(y) * static_cast<std::size_t>(stride) +
                       static_cast<std::size_t>(x * 3 + c)];
    }

    template <class Value>
    HostImage& fill(Value&& value) {
        for (std::int32_t y = 0; y < record.height; ++y)
            for (std::int32_t x = 0; x < record.width; ++x)
                for (std::int32_t c = 0; c < 3; ++c)
                    at(x, y, c) = static_cast<Sample>(
                        std::lround(std::clamp(value(x, y, c), 0.0, 1.0) * fullScale));
        return *this;
    }

    /// The scene with Gaussian noise of the given deviation (0..1 scale).
    HostImage& fillNoisyScene(double deviation, std::uint32_t seed = 1) {
        std::mt19937 random(seed);
        std::normal_distribution<double> noise(0.0, 1.0);
        return fill([&](std::int32_t x, std::int32_t y, std::int32_t c) {
            return sceneAt(x, y, c) + deviation * noise(random);
        });
    }

    /// PSNR against the clean scene, in decibels.
    double psnr() {
        double sum = 0.0;
        for (std::int32_t y = 0; y < record.height; ++y)
            for (std::int32_t x = 0; x < record.width; ++x)
                for (std::int32_t c = 0; c < 3; ++c) {
                    const double d = at(x, y, c) / fullScale - sceneAt(x, y, c);
                    sum += d * d;
                }
        return -10.0 * std::log10(sum / (3.0 * record.width * record.height));
    }

    bool paddingIntact() {
        for (std::int32_t y = 0; y < record.height; ++y)
            for (std::int32_t x = record.width * 3; x < stride; ++x)
                if (at(0, y, x) != paddingMark)
                    return false;
        return true;
    }

    std::int32_t stride; // samples from one row to the next
    std::vector<Sample> samples;
    PSImage record;
};

/// Equal levels for all planes and intensities.
inline QxNoiseLevels levelsOf(float noise) {
    return {noise, noise, noise, noise, noise, 0.0f};
}

} // namespace kt7::test
