#include "tools/kt7/library.h"

#include "kt7lib/kt7lib.h"
#include "tools/kt7/errors.h"
#include "tools/kt7/files/photo.h"
#include "tools/kt7/signals.h"

#include <algorithm>
#include <iterator>
#include <new>

namespace kt7::tool {
namespace {

std::int32_t hearProgress(std::int32_t done, std::int32_t total, void* userData) {
    const auto& onProgress = *static_cast<const std::function<void(double)>*>(userData);
    if (total > 0)
        onProgress(static_cast<double>(done) / total);
    return pendingSignal() == 0;
}

} // namespace

NoiseEstimate estimateNoise(Photo& photo) {
    NoiseEstimate estimate;
    PSImage image = photo.hostImage();
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

void denoise(Photo& photo, const DenoiseSettings& settings,
             const std::function<void(double)>& onProgress) {
    QxProgress progress{};
    progress.callback = hearProgress;
    progress.userData = const_cast<std::function<void(double)>*>(&onProgress);
    PSImage image = photo.hostImage();
    // Smoothing strengths that divide the span of a plane without a rest, as 0.02 does, lose its
    // brightest samples; a thousandth more meets none of the round numbers that people give.
    constexpr float offRoundNumbers = 1.0f + 1.0f / 1024.0f;
    const std::int32_t result = qxDenoiseKt7(
        &progress, &image, &settings.levels, settings.lumaSmooth * offRoundNumbers,
        settings.sharpen, settings.chromaMedian, settings.chromaSmooth * offRoundNumbers,
        settings.grain, settings.fast ? 0 : 1);
    throwIfCancelled();
    // Our record and buffer are sound, so that -1000 means the same as the others.
    constexpr std::int32_t noMemory[] = {-1000, -999, -898, -892, -885};
    if (std::ranges::find(noMemory, result) != std::end(noMemory))
        throw std::bad_alloc();
    if (result != 1)
        throw UserError("the denoiser failed with code " + std::to_string(result));
}

} // namespace kt7::tool
