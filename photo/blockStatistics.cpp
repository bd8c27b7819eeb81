#include "photo/blockStatistics.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace kt7::photo {
namespace {

constexpr std::int32_t side = 8;
constexpr std::int32_t bands = kt7PhotoBands;
using Block = std::array<double, side * side>;

constexpr bool isCoarse(std::int32_t i) {
    return i / side + i % side <= 2;
}
constexpr bool isFine(std::int32_t i) {
    return i / side + i % side > 6;
}
constexpr bool isMiddle(std::int32_t i) {
    return !isCoarse(i) && !isFine(i);
}

/// Mean of the coefficients that `wanted` names.
template <class Wanted>
double meanOf(const Block& block, Wanted&& wanted) {
    double sum = 0.0;
    int count = 0;
    for (std::int32_t i = 0; i < side * side; ++i)
        if (wanted(i)) {
            sum += block[static_cast<std::size_t>(i)];
            ++count;
        }
    return sum / count;
}

/// Orthonormal DCT of 8x8 values, in place.
void transform(std::array<float, side * side>& block) {
    static const auto basis = [] {
        std::array<float, side * side> m{};
        for (std::size_t k = 0; k < side; ++k)
            for (std::size_t n = 0; n < side; ++n)
                m[k * side + n] =
                    static_cast<float>(std::sqrt((k == 0 ? 1.0 : 2.0) / side) *
                                       std::cos(std::numbers::pi * (static_cast<double>(n) + 0.5) *
                                                static_cast<double>(k) / side));
        return m;
    }();
    std::array<float, side * side> across{};
    for (std::size_t y = 0; y < side; ++y)
        for (std::size_t k = 0; k < side; ++k)
            for (std::size_t n = 0; n < side; ++n)
                across[y * side + k] += block[y * side + n] * basis[k * side + n];
    block.fill(0.0f);
    for (std::size_t k = 0; k < side; ++k)
        for (std::size_t n = 0; n < side; ++n)
            for (std::size_t x = 0; x < side; ++x)
                block[k * side + x] += across[n * side + x] * basis[k * side + n];
}

/// Adds the power of a block of `plane`, less the pilot if there is one, to the sums.
void addPower(const Planes& photo, const Planes* pilot, std::int32_t plane, BlockPlace at,
              Block& sums) {
    std::array<float, side * side> block;
    for (std::int32_t y = 0; y < side; ++y) {
        const float* z = photo.row(plane, at.y + y) + at.x;
        const float* p = pilot != nullptr ? pilot->row(plane, at.y + y) + at.x : nullptr;
        for (std::int32_t x = 0; x < side; ++x)
            block[static_cast<std::size_t>(y) * side + static_cast<std::size_t>(x)] =
                z[x] - (p != nullptr ? p[x] : 0.0f);
    }
    transform(block);
    for (std::size_t i = 0; i < block.size(); ++i)
        sums[i] += static_cast<double>(block[i]) * static_cast<double>(block[i]);
}

/// Mean power over blocks.
Block meanPower(const Planes& photo, const Planes* pilot, std::int32_t plane,
                const std::vector<BlockPlace>& blocks) {
    Block sums{};
    for (const BlockPlace& at : blocks)
        addPower(photo, pilot, plane, at, sums);
    for (double& sum : sums)
        sum /= static_cast<double>(std::max<std::size_t>(1, blocks.size()));
    return sums;
}

struct Calmness {
    BlockPlace place;
    float activity;   // energy of the pilot but for its mean, all planes
    float brightness; // mean of O0
};

std::vector<Calmness> calmnessOf(const Planes& pilot, const std::vector<BlockPlace>& blocks) {
    std::vector<Calmness> result;
    result.reserve(blocks.size());
    for (const BlockPlace& at : blocks) {
        double activity = 0.0, brightness = 0.0;
        for (std::int32_t plane = 0; plane < pilot.count; ++plane) {
            double sum = 0.0, squares = 0.0;
            for (std::int32_t y = 0; y < side; ++y) {
                const float* p = pilot.row(plane, at.y + y) + at.x;
                for (std::int32_t x = 0; x < side; ++x) {
                    const auto value = static_cast<double>(p[x]);
                    sum += value;
                    squares += value * value;
                }
            }
            activity += squares - sum * sum / (side * side);
            if (plane == 0)
                brightness = sum / (side * side);
        }
        result.push_back({at, static_cast<float>(activity), static_cast<float>(brightness)});
    }
    return result;
}

/// The value below which `share` of the values lie, between neighbours in a straight line.
float quantile(std::vector<float> values, float share) {
    if (values.empty())
        return 0.0f;
    const double at = static_cast<double>(share) * static_cast<double>(values.size() - 1);
    const auto low = static_cast<std::ptrdiff_t>(at);
    std::nth_element(values.begin(), values.begin() + low, values.end());
    const float below = values[static_cast<std::size_t>(low)];
    if (low + 1 == static_cast<std::ptrdiff_t>(values.size()))
        return below;
    const float above = *std::min_element(values.begin() + low + 1, values.end());
    return std::lerp(below, above, static_cast<float>(at - static_cast<double>(low)));
}

template <class Field>
std::vector<float> valuesOf(const std::vector<Calmness>& blocks, Field field) {
    std::vector<float> values;
    values.reserve(blocks.size());
    for (const Calmness& block : blocks)
        values.push_back(block.*field);
    return values;
}

std::vector<BlockPlace> calmest(const std::vector<Calmness>& blocks, float threshold) {
    std::vector<BlockPlace> result;
    for (const Calmness& block : blocks)
        if (block.activity <= threshold)
            result.push_back(block.place);
    return result;
}

/// What was measured in one band of intensity.
struct Band {
    Block power[3]{};
    float brightness = 0.0f;
    float activity = 0.0f; // of the busiest block that was measured
    double weight = 0.0;
};

std::array<Band, bands> measuredBands(const Planes& photo, const Planes& pilot,
                                      const std::vector<Calmness>& blocks) {
    const std::vector<float> brightness = valuesOf(blocks, &Calmness::brightness);
    std::array<Band, bands> result;
    for (std::size_t i = 0; i < bands; ++i) {
        const float from = quantile(brightness, static_cast<float>(i) / bands);
        const float to = quantile(brightness, static_cast<float>(i + 1) / bands);
        std::vector<Calmness> members;
        for (const Calmness& block : blocks)
            if (block.brightness >= from && block.brightness <= to)
                members.push_back(block);
        Band& band = result[i];
        band.activity = quantile(valuesOf(members, &Calmness::activity), rule::spectrumShare);
        double sum = 0.0;
        int count = 0;
        for (const Calmness& block : members)
            if (block.activity <= band.activity) {
                sum += static_cast<double>(block.brightness);
                ++count;
            }
        band.brightness = count > 0 ? static_cast<float>(sum / count) : from;
        for (std::int32_t plane = 0; plane < photo.count; ++plane)
            band.power[plane] = meanPower(photo, &pilot, plane, calmest(members, band.activity));
    }
    return result;
}

/// How much stronger the noise of a plane is in each band than the mean, smoothed over the bands.
std::array<double, bands> gainsOf(const std::array<Band, bands>& measured, std::int32_t plane) {
    std::array<double, bands> logs{}, gains{};
    double mean = 0.0;
    for (std::size_t i = 0; i < bands; ++i) {
        gains[i] = meanOf(measured[i].power[plane], [](auto c) { return !isCoarse(c); }) + 0.05;
        mean += measured[i].weight * gains[i];
    }
    for (std::size_t i = 0; i < bands; ++i)
        logs[i] = std::log(gains[i] / mean) * std::min(1.0, measured[i].weight * bands);
    for (std::size_t i = 0; i < bands; ++i)
        gains[i] = std::exp(0.25 * logs[i > 0 ? i - 1 : 0] + 0.5 * logs[i] +
                            0.25 * logs[std::min<std::size_t>(i + 1, bands - 1)]);
    return gains;
}

double rising(double value, float from, float to) {
    return std::clamp((value - static_cast<double>(from)) / static_cast<double>(to - from), 0.0,
                      1.0);
}

} // namespace

std::vector<BlockPlace> blocksWithin(const std::vector<BlockPlace>& blocks,
                                     const EngineImage& image, float low, float high) {
    constexpr float scale = EngineImage::top / 255.0f;
    const float above = low * scale, below = high * scale;
    std::vector<BlockPlace> result;
    for (const BlockPlace& at : blocks) {
        bool good = true;
        for (std::int32_t y = 0; good && y < side; ++y) {
            const std::uint16_t* rgb = image.row(at.y + y) + std::ptrdiff_t{3} * at.x;
            good = std::all_of(rgb, rgb + 3 * side, [&](std::uint16_t sample) {
                const auto value = static_cast<float>(sample);
                return value > above && value < below;
            });
        }
        if (good)
            result.push_back(at);
    }
    return result;
}

namespace {

/// Mean power of a photo's colour over blocks; zero for a grey photo.
Block colourPower(const Planes& photo, const std::vector<BlockPlace>& blocks) {
    Block mean{};
    for (std::int32_t plane = 1; plane < photo.count; ++plane) {
        const Block power = meanPower(photo, nullptr, plane, blocks);
        for (std::size_t i = 0; i < mean.size(); ++i)
            mean[i] += 0.5 * power[i];
    }
    return mean;
}

std::vector<BlockPlace> calmTwentieth(const std::vector<Calmness>& blocks) {
    return calmest(blocks, quantile(valuesOf(blocks, &Calmness::activity), rule::featureShare));
}

/// How even the middle power of luma is over all blocks.
float evennessOf(const Planes& photo, const std::vector<BlockPlace>& blocks) {
    std::vector<float> powers;
    powers.reserve(blocks.size());
    for (const BlockPlace& at : blocks) {
        Block power{};
        addPower(photo, nullptr, 0, at, power);
        powers.push_back(static_cast<float>(meanOf(power, isMiddle)));
    }
    constexpr float least = 0.02f;
    return (quantile(powers, 0.05f) + least) / (quantile(powers, 0.25f) + least);
}

/// Replaces the variances of strong white noise by those of blocks whose pilot is far from the ends
/// of the scale.
void measureWhite(Features& features, const Planes& photo, const Planes& pilot,
                  const EngineImage& pilotImage, const std::vector<BlockPlace>& all) {
    const float strongest = std::max(features.fineColour, features.fineLuma);
    if (features.fineOverMiddle <= 0.5f || strongest <= rule::strongWhite)
        return;
    float colour = features.fineColour, luma = features.fineLuma;
    for (int pass = 0; pass < 2; ++pass) {
        float margin = std::min(2.5f * std::sqrt(std::max(colour, luma)) + 2.0f, 110.0f);
        std::vector<BlockPlace> inside = blocksWithin(all, pilotImage, margin, 255.0f - margin);
        while (inside.size() < rule::fewBlocks && margin > 2.0f) {
            margin *= 0.8f;
            inside = blocksWithin(all, pilotImage, margin, 255.0f - margin);
        }
        if (inside.size() < rule::fewBlocks)
            break;
        const std::vector<BlockPlace> calm = calmTwentieth(calmnessOf(pilot, inside));
        colour = static_cast<float>(meanOf(colourPower(photo, calm), isFine));
        luma = static_cast<float>(meanOf(meanPower(photo, nullptr, 0, calm), isFine));
    }
    const float share = std::clamp(
        (strongest - rule::strongWhite) / (rule::clippingWhite - rule::strongWhite), 0.0f, 1.0f);
    features.whiteColour = std::lerp(features.fineColour, colour, share);
    features.whiteLuma = std::lerp(features.fineLuma, luma, share);
}

} // namespace

Features featuresOf(const Planes& photo, const Planes& pilot, const EngineImage& pilotImage,
                    const std::vector<BlockPlace>& blocks, const std::vector<BlockPlace>& all) {
    const std::vector<BlockPlace> calm = calmTwentieth(calmnessOf(pilot, blocks));
    const auto coarse = [](std::int32_t i) { return i > 0 && isCoarse(i); };
    const Block taken = meanPower(photo, &pilot, 0, calm);
    const Block luma = meanPower(photo, nullptr, 0, calm);
    const Block colour = colourPower(photo, calm);
    constexpr double least = 1e-3; // for what was not there to be divided by
    Features features{};
    features.takenMiddle = static_cast<float>(meanOf(taken, isMiddle));
    features.fineOverMiddle =
        static_cast<float>(meanOf(taken, isFine) / (meanOf(taken, isMiddle) + least));
    features.fineColour = static_cast<float>(meanOf(colour, isFine));
    features.middleColour = static_cast<float>(meanOf(colour, isMiddle));
    features.fineLuma = static_cast<float>(meanOf(luma, isFine));
    features.middleLuma = static_cast<float>(meanOf(luma, isMiddle));
    features.coarseColour =
        static_cast<float>(meanOf(colour, coarse) / (meanOf(luma, coarse) + least));
    features.evenness = evennessOf(photo, blocks);
    features.whiteColour = features.fineColour;
    features.whiteLuma = features.fineLuma;
    measureWhite(features, photo, pilot, pilotImage, all);
    if (photo.count == 1) // nothing else tells texture from white noise in a grey photo
        features.whiteColour = features.whiteLuma;
    return features;
}

void setSpectrum(Kt7PhotoNoise& noise, const Planes& photo, const Planes& pilot,
                 const std::vector<BlockPlace>& blocks, const NoiseKind& kind,
                 const WhitePower& white) {
    const std::vector<Calmness> all = calmnessOf(pilot, blocks);
    std::array<Band, bands> measured = measuredBands(photo, pilot, all);
    const float calm = quantile(valuesOf(all, &Calmness::activity), rule::calmBand);
    double weights = 0.0;
    for (Band& band : measured)
        weights += band.weight =
            band.activity <= calm ? 1.0 : static_cast<double>(rule::busyWeight);
    for (Band& band : measured)
        band.weight /= weights;

    // Fine over middle power again, now by the two calmest bands and the better pilot.
    std::array<const Band*, bands> byActivity;
    for (std::size_t i = 0; i < bands; ++i)
        byActivity[i] = &measured[i];
    std::stable_sort(byActivity.begin(), byActivity.end(),
                     [](const Band* a, const Band* b) { return a->activity < b->activity; });
    const double fine =
        meanOf(byActivity[0]->power[0], isFine) + meanOf(byActivity[1]->power[0], isFine);
    const double middle =
        meanOf(byActivity[0]->power[0], isMiddle) + meanOf(byActivity[1]->power[0], isMiddle);
    const double ratio = fine / std::max(middle, 1e-6);
    const double flat = rising(ratio, rule::flatFrom, rule::flatTo);
    const double hidden = 1.0 - rising(ratio, rule::hiddenWholly, rule::hiddenNot);

    const auto open = static_cast<double>(kind.open);
    const auto whiteShare = [&](std::int32_t plane) {
        return static_cast<double>(plane == 0 ? kind.white : kind.whiteColour);
    };
    Block spectra[3]{};
    for (std::int32_t plane = 0; plane < photo.count; ++plane) {
        const std::array<double, bands> gains = gainsOf(measured, plane);
        Block& power = spectra[plane];
        for (std::size_t i = 0; i < bands; ++i)
            for (std::size_t c = 0; c < power.size(); ++c)
                power[c] += measured[i].weight * measured[i].power[plane][c] / gains[i];
        power[0] = std::max(power[0], static_cast<double>(rule::meanOverNeighbours) *
                                          (power[1] + power[side]) / 2.0);
        const double even = meanOf(power, [](auto c) { return !isCoarse(c); });
        const float* const factors = plane == 0 ? rule::hiddenLuma : rule::hiddenColour;
        for (std::int32_t c = 0; c < side * side; ++c) {
            const double factor = (1.0 - open) * (static_cast<double>(factors[isCoarse(c)   ? 0
                                                                              : isMiddle(c) ? 1
                                                                                            : 2]) -
                                                  1.0);
            double& value = power[static_cast<std::size_t>(c)];
            value = (1.0 - flat) * value * (1.0 + hidden * factor) + flat * even +
                    static_cast<double>(rule::leastPower);
        }
        for (std::size_t i = 0; i < bands; ++i)
            noise.gain[plane][i] =
                static_cast<float>(1.0 + (1.0 - whiteShare(plane)) * (gains[i] - 1.0));
    }
    for (std::size_t c = 0; c < side * side; ++c) {
        // Noise that is as strong in colour as in luma bounds what luma's is taken for.
        const double bound = 1.3 * (spectra[1][c] + spectra[2][c]) / 2.0;
        if (photo.count > 1)
            spectra[0][c] = std::lerp(spectra[0][c], std::min(spectra[0][c], bound), open);
        for (std::int32_t plane = 0; plane < photo.count; ++plane)
            noise.spectrum[plane][c / side][c % side] = static_cast<float>(std::lerp(
                spectra[plane][c], static_cast<double>(plane == 0 ? white.luma : white.colour),
                whiteShare(plane)));
    }
    for (std::size_t i = 0; i < bands; ++i)
        noise.intensity[i] = rootThird * measured[i].brightness;
}

} // namespace kt7::photo
