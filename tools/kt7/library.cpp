#include "tools/kt7/library.h"

#include "kt7lib/kt7lib.h"
#include "tools/kt7/errors.h"
#include "tools/kt7/files/sampleScale.h"

#include <algorithm>
#include <iterator>
#include <new>

namespace kt7::tool {
namespace {

std::int32_t hearProgress(std::int32_t done, std::int32_t total, void* userData) {
    const auto& onProgress = *static_cast<const std::function<void(double)>*>(userData);
    if (total > 0)
        onProgress(static_cast<double>(done) / total);
    return 1;
}

} // namespace

LibraryImage::LibraryImage(const Photo& photo) : width_(photo.width), height_(photo.height) {
    const Rescale toLibrary(photo.white(), libraryWhite);
    samples_.reserve(static_cast<std::size_t>(photo.pixels()) * 3);
    for (const std::uint16_t sample : photo.samples)
        samples_.insert(samples_.end(), photo.channels == 1 ? 3 : 1, toLibrary(sample));
}

PSImage LibraryImage::view() {
    constexpr std::int32_t rgb16 = 3;
    return {rgb16, samples_.data(), width_ * 3 * std::int32_t{sizeof(std::uint16_t)}, width_,
            height_};
}

void LibraryImage::bringBack(Photo& photo) const {
    const Rescale toLibrary(photo.white(), libraryWhite), back(libraryWhite, photo.white());
    // The denoiser keeps grey grey but for the rounding of its colour matrix; green carries most of
    // luma and thus the least of that rounding.
    const std::size_t step = photo.channels == 1 ? 3 : 1, first = photo.channels == 1 ? 1 : 0;
    const auto white = static_cast<int>(photo.white());
    for (std::size_t i = 0; i < photo.samples.size(); ++i) {
        std::uint16_t& sample = photo.samples[i];
        const int change = back(samples_[i * step + first]) - back(toLibrary(sample));
        sample = static_cast<std::uint16_t>(std::clamp(sample + change, 0, white));
    }
}

Bytes screenRgb(const Photo& photo) {
    constexpr std::uint32_t white = 255;
    const Rescale toScreen(photo.white(), white);
    Bytes rgb;
    rgb.reserve(static_cast<std::size_t>(photo.pixels()) * 3);
    for (const std::uint16_t sample : photo.samples)
        rgb.insert(rgb.end(), photo.channels == 1 ? 3 : 1,
                   static_cast<std::uint8_t>(toScreen(sample)));
    return rgb;
}

NoiseEstimate estimateNoise(const Photo& photo) {
    NoiseEstimate estimate;
    LibraryImage carried(photo);
    PSImage image = carried.view();
    try {
        estimate.measured = qxKt7NoiseEst(&image, &estimate.levels) == 1;
    } catch (...) {
        // The estimate has no handler of its own: what leaves it is always a lack of memory.
        throw std::bad_alloc();
    }
    return estimate;
}

QxNoiseLevels scaled(const QxNoiseLevels& levels, float lumaFactor, float chromaFactor) {
    return {levels.lumaMid * lumaFactor,   levels.chromaU * chromaFactor,
            levels.chromaV * chromaFactor, levels.lumaLow * lumaFactor,
            levels.lumaHigh * lumaFactor,  levels.noiseGrain};
}

void removeNoise(Photo& photo, const DenoiseSettings& settings,
                 const std::function<void(double)>& onProgress) {
    QxProgress progress{};
    progress.callback = hearProgress;
    progress.userData = const_cast<std::function<void(double)>*>(&onProgress);
    LibraryImage carried(photo);
    PSImage image = carried.view();
    // Smoothing strengths that divide the span of a plane without a rest, as 0.02 does, lose its
    // brightest samples; a thousandth more meets none of the round numbers that people give.
    constexpr float offRoundNumbers = 1.0f + 1.0f / 1024.0f;
    const std::int32_t result = qxDenoiseKt7(
        &progress, &image, &settings.levels, settings.lumaSmooth * offRoundNumbers,
        settings.sharpen, settings.chromaMedian, settings.chromaSmooth * offRoundNumbers,
        settings.grain, settings.fast ? 0 : 1);
    // Our record and buffer are sound, so that -1000 means the same as the others.
    constexpr std::int32_t noMemory[] = {-1000, -999, -898, -892, -885};
    if (std::ranges::find(noMemory, result) != std::end(noMemory))
        throw std::bad_alloc();
    if (result != 1)
        throw UserError("the denoiser failed with code " + std::to_string(result));
    carried.bringBack(photo);
}

} // namespace kt7::tool
