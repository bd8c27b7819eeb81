#include "photo/textureGuard.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "photo/strengthRule.h"

namespace kt7::photo {
namespace {

constexpr std::int32_t side = 16; // of a window: enough pixels to measure, few enough for gaps
constexpr std::int32_t reach = 2;
constexpr std::size_t leastWindows = 60;

/// Luma of a square of the photo, 0..1.
class Window {
  public:
    void load(const EngineImage& image, std::int32_t left, std::int32_t top) {
        for (std::int32_t y = 0; y < whole; ++y) {
            const std::uint16_t* rgb = image.row(top + y) + std::ptrdiff_t{3} * left;
            for (float& luma : rows_[static_cast<std::size_t>(y)]) {
                luma = engineLuma(rgb[0], rgb[1], rgb[2]) / EngineImage::top;
                rgb += 3;
            }
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
    static constexpr std::int32_t whole = side + 2 * reach;
    std::array<std::array<float, whole>, whole> rows_{};
};

float calmest(std::vector<float>& deviations) {
    const auto place =
        deviations.begin() +
        static_cast<std::ptrdiff_t>(rule::calmShare * static_cast<float>(deviations.size()));
    std::nth_element(deviations.begin(), place, deviations.end());
    return *place;
}

} // namespace

NoiseFloor noiseFloorOf(const EngineImage& image) {
    // A big photo is sampled: some ten thousand windows say enough.
    constexpr double enoughPixels = 4e6;
    const double spacing =
        std::max(1.0, std::sqrt(static_cast<double>(image.width) * image.height / enoughPixels));
    const auto step = static_cast<std::int32_t>(side * spacing);
    // Less than rounding to 8 bits makes by itself is a drawn frame or a burnt-out sky.
    constexpr float flat = 0.25f / 255.0f;
    Window window;
    std::vector<float> apart, neighbours;
    for (std::int32_t y = 0; y + side + 2 * reach <= image.height; y += step)
        for (std::int32_t x = 0; x + side + 2 * reach <= image.width; x += step) {
            window.load(image, x, y);
            const float deviation = window.deviation(2);
            if (deviation < flat || !window.isMidtone())
                continue;
            apart.push_back(deviation);
            neighbours.push_back(window.deviation(1));
        }
    if (apart.size() < leastWindows)
        return {};
    const float level = calmest(apart);
    return {true, level / rule::calmBias, calmest(neighbours) / level};
}

QxNoiseLevels guardedLevels(const QxNoiseLevels& estimate, const NoiseFloor& floor) {
    QxNoiseLevels held = estimate;
    float fine = 1.0f; // share of the factors for fine noise
    if (floor.measured) {
        fine = std::clamp((floor.fineness - rule::coarseFineness) /
                              (rule::fineFineness - rule::coarseFineness),
                          0.0f, 1.0f);
        const float most =
            floor.level * std::lerp(rule::allowance.coarse, rule::allowance.fine, fine);
        // What raised luma raised the colours too: they follow.
        const float scale = estimate.lumaMid > most ? most / estimate.lumaMid : 1.0f;
        held = scaled(estimate, scale, scale);
        held.lumaLow = std::min(held.lumaLow, rule::mostAtEnds * held.lumaMid);
        held.lumaHigh = std::min(held.lumaHigh, rule::mostAtEnds * held.lumaMid);
    }
    held.noiseGrain = rule::noiseGrain;
    return scaled(held, std::lerp(rule::firstLuma.coarse, rule::firstLuma.fine, fine),
                  std::lerp(rule::firstChroma.coarse, rule::firstChroma.fine, fine));
}

} // namespace kt7::photo
