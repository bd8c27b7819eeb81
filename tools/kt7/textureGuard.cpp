#include "tools/kt7/textureGuard.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace kt7::tool {
namespace {

constexpr std::int32_t side =
    16; // of a window: enough pixels to measure, few enough to fit in gaps
constexpr std::int32_t reach = 2;
constexpr std::size_t leastWindows = 60;

// The twentieth part of the windows is calm in all but the busiest photos; in white noise their
// deviation reads low by this factor, as they are the lowest of many measurements.
constexpr float calmShare = 0.05f;
constexpr float calmBias = 0.88f;

// The calm places of a photo may be calmer than its noise is elsewhere: dark, or smoothed by the
// camera. Fine noise was not smoothed.
constexpr float allowanceCoarse = 1.25f;
constexpr float allowanceFine = 1.1f;
// The levels of black and white are extrapolated, wildly at times.
constexpr float mostAtEnds = 1.5f;

// At most the first, noise has the grain of a demosaicing filter; from the second on it is fine.
constexpr float coarseFineness = 0.45f;
constexpr float fineFineness = 0.6f;

void lumaRow(const std::uint16_t* sample, std::int32_t channels, float scale,
             std::vector<float>& luma) {
    const auto at = [&](int c) { return static_cast<float>(sample[c]); };
    for (float& y : luma) {
        y = scale * (channels == 1 ? at(0) : 0.299f * at(0) + 0.587f * at(1) + 0.114f * at(2));
        sample += channels;
    }
}

/// Luma of a square of the photo, 0..1.
class Window {
  public:
    void load(const Photo& photo, std::int32_t left, std::int32_t top) {
        const auto channels = static_cast<std::size_t>(photo.channels);
        const float scale = 1.0f / static_cast<float>(photo.white());
        for (std::size_t y = 0; y < rows_.size(); ++y) {
            const std::size_t pixel =
                (static_cast<std::size_t>(top) + y) * static_cast<std::size_t>(photo.width) +
                static_cast<std::size_t>(left);
            lumaRow(&photo.samples[pixel * channels], photo.channels, scale, rows_[y]);
        }
    }

    bool isMidtone() const {
        float sum = 0.0f, low = 1.0f, high = 0.0f;
        for (const auto& row : rows_)
            for (const float y : row) {
                sum += y;
                low = std::min(low, y);
                high = std::max(high, y);
            }
        const float mean = sum / static_cast<float>(whole * whole);
        return mean > 0.2f && mean < 0.9f && low > 0.01f && high < 0.99f;
    }

    /// Deviation by a kernel that cancels slopes (Immerkaer 1996), its taps `step` pixels apart.
    float deviation(std::size_t step) const {
        float sum = 0.0f;
        for (std::size_t y = reach; y < whole - reach; ++y) {
            const auto &up = rows_[y - step], &mid = rows_[y], &down = rows_[y + step];
            const auto across = [&](std::size_t x) { return up[x] - 2.0f * mid[x] + down[x]; };
            for (std::size_t x = reach; x < whole - reach; ++x) {
                const float r = across(x - step) - 2.0f * across(x) + across(x + step);
                sum += r * r;
            }
        }
        constexpr float kernelNorm = 6.0f;
        return std::sqrt(sum) / (kernelNorm * side);
    }

  private:
    static constexpr std::size_t whole = side + 2 * reach;
    std::vector<std::vector<float>> rows_{whole, std::vector<float>(whole)};
};

float calmest(std::vector<float>& deviations) {
    const auto place = deviations.begin() + static_cast<std::ptrdiff_t>(
                                                calmShare * static_cast<float>(deviations.size()));
    std::nth_element(deviations.begin(), place, deviations.end());
    return *place;
}

} // namespace

NoiseFloor noiseFloorOf(const Photo& photo) {
    // A big photo is sampled: some ten thousand windows say enough.
    constexpr double enoughPixels = 4e6;
    const double spacing =
        std::max(1.0, std::sqrt(static_cast<double>(photo.pixels()) / enoughPixels));
    const auto step = static_cast<std::int32_t>(side * spacing);
    // Less than rounding to 8 bits makes by itself is a drawn frame or a burnt-out sky.
    constexpr float flat = 0.25f / 255.0f;
    Window window;
    std::vector<float> apart, neighbours;
    for (std::int32_t y = 0; y + side + 2 * reach <= photo.height; y += step)
        for (std::int32_t x = 0; x + side + 2 * reach <= photo.width; x += step) {
            window.load(photo, x, y);
            const float deviation = window.deviation(2);
            if (deviation < flat || !window.isMidtone())
                continue;
            apart.push_back(deviation);
            neighbours.push_back(window.deviation(1));
        }
    if (apart.size() < leastWindows)
        return {};
    const float level = calmest(apart);
    return {true, level / calmBias, calmest(neighbours) / level};
}

Json jsonOf(const NoiseFloor& floor) {
    return {{"measured", floor.measured},
            {"level", jsonNumber(floor.level)},
            {"fineness", jsonNumber(floor.fineness)}};
}

QxNoiseLevels guardedLevels(const QxNoiseLevels& measured, const NoiseFloor& floor, float strength,
                            LevelFactors coarse, LevelFactors fine) {
    QxNoiseLevels held = measured;
    float share = 1.0f; // of the factors for fine noise
    if (floor.measured) {
        share = std::clamp((floor.fineness - coarseFineness) / (fineFineness - coarseFineness),
                           0.0f, 1.0f);
        const float most =
            floor.level * (allowanceCoarse + share * (allowanceFine - allowanceCoarse));
        // What raised luma raised the colours too: they follow.
        const float scale = measured.lumaMid > most ? most / measured.lumaMid : 1.0f;
        held = scaled(measured, scale, scale);
        held.lumaLow = std::min(held.lumaLow, mostAtEnds * held.lumaMid);
        held.lumaHigh = std::min(held.lumaHigh, mostAtEnds * held.lumaMid);
    }
    return scaled(held, strength * (coarse.luma + share * (fine.luma - coarse.luma)),
                  strength * (coarse.chroma + share * (fine.chroma - coarse.chroma)));
}

BlindLevels blindLevels(const Photo& photo, const BlindRule& rule) {
    BlindLevels blind;
    blind.estimate = estimateNoise(photo);
    const QxNoiseLevels& measured = blind.estimate.levels;
    if (rule.guard) {
        blind.floor = noiseFloorOf(photo);
        blind.levels = guardedLevels(measured, blind.floor, rule.strength, rule.coarse, rule.fine);
    } else {
        blind.levels =
            scaled(measured, rule.strength * rule.coarse.luma, rule.strength * rule.coarse.chroma);
    }
    blind.levels.noiseGrain = rule.noiseGrain;
    return blind;
}

} // namespace kt7::tool
