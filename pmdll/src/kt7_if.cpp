// The denoise call: from the host's pixels to three noise-normalised planes, through the stages,
// back.
#include <algorithm>

#include "pmdll/src/callGuards.h"
#include "pmdll/src/exports.h"
#include "qxenhlib/Denoise3DCT.h"
#include "qxenhlib/NormalisedPlanes.h"
#include "qxenhlib/chromaMedian.h"
#include "qxenhlib/grainStage.h"
#include "qxenhlib/sharpenStage.h"
#include "qxutils/qxbase/IMG.h"
#include "qxutils/qxbase/QXRC.h"
#include "qxutils/qxbase/hostFormat.h"
#include "qxutils/qxbase/progress.h"

namespace kt7 {
namespace {

constexpr std::int32_t mostThreads = 4;
constexpr std::int32_t conversionShare = 1000;
constexpr std::int32_t denoiserShare = 97000;
constexpr float sharpenThreshold = 0.01f;
constexpr float grainThreshold = 1e-5f;
constexpr float stageThreshold = 1e-5f; // noise and smoothing at or below it need no denoiser

// Strengths and levels that a calculation can bear: NaN and negative values count as off, and what
// is beyond any image is held where products of such numbers stay finite.
float bearable(float value) {
    return value > 0.0f ? std::min(value, 1e6f) : 0.0f;
}

struct Settings {
    DenoiseSettings denoiser;
    std::int32_t chromaMedianMode;
    float grain;
};

// False when the host cancelled.
bool denoisePlanes(QxProgress& progress, NormalisedPlanes& planes,
                   const DenoiseSettings& settings) {
    const PlaneNoise levels = planes.noise();
    if (!(std::max({levels.luma, levels.chromaU, levels.chromaV, settings.lumaSmooth,
                    settings.chromaSmooth}) > stageThreshold))
        return true;
    Denoise3DCT denoiser;
    progress.phaseBudget = denoiserShare;
    denoiser.progress = &progress;
    denoiser.setParams(levels, settings);
    for (GIMG<std::int16_t>* plane : {&planes.luma, &planes.chromaU, &planes.chromaV})
        denoiser.addChannel(*plane);
    return denoiser.run() == 0;
}

// The whole call but for its guards: 1 when done, 0 when the host cancelled; raises.
std::int32_t denoise(QxProgress& progress, PSImage* hostImage, const QxNoiseLevels* hostNoise,
                     const Settings& settings) {
    // The host's records count as they are at entry, whatever its callback does to them.
    const PSImage image = hostImage != nullptr ? *hostImage : PSImage{};
    const QxNoiseLevels levels = hostNoise != nullptr ? *hostNoise : QxNoiseLevels{};
    progress.total = progressTotal;
    progress.done = 2;
    qxProgressAdvance(&progress, 0);
    if (hostNoise == nullptr || !isUsable(&image, image.format == formatRgb8 ? 1 : 2))
        raise(QxBase::QXRC::badHostBuffer);
    const QxNoiseLevels noise = {bearable(levels.lumaMid),  bearable(levels.chromaU),
                                 bearable(levels.chromaV),  bearable(levels.lumaLow),
                                 bearable(levels.lumaHigh), bearable(levels.noiseGrain)};
    {
        NormalisedPlanes planes(image.width, image.height, noise);
        planes.fill(image);
        if (qxProgressAdvance(&progress, conversionShare) == 0)
            return 0;

        if (settings.chromaMedianMode > 0) {
            chromaMedian(planes.chromaU, settings.chromaMedianMode);
            chromaMedian(planes.chromaV, settings.chromaMedianMode);
        }
        if (!denoisePlanes(progress, planes, settings.denoiser))
            return 0;
        if (settings.denoiser.sharpen > sharpenThreshold) {
            sharpenLuma(planes.luma, settings.denoiser.sharpen);
            if (qxProgressAdvance(&progress, progressTotal) == 0)
                return 0;
        }
        if (settings.grain > grainThreshold)
            addGrain(planes.luma, settings.grain);

        planes.store(image);
        if (qxProgressAdvance(&progress, progressTotal) == 0)
            return 0;
    }
    qxProgressAdvance(&progress, progressTotal);
    return 1;
}

// Tells the host that a failed call is over. A callback that throws must not keep the result from
// it.
void finishFailedCall(QxProgress& progress) noexcept {
    try {
        qxProgressAdvance(&progress, progressTotal);
    } catch (...) {
    }
}

} // namespace
} // namespace kt7

KT7_EXPORT std::int32_t qxDenoiseKt7(QxProgress* progress, PSImage* image,
                                     const QxNoiseLevels* noise, float lumaSmooth, float sharpen,
                                     std::int32_t chromaMedianMode, float chromaSmooth, float grain,
                                     std::int32_t fullQuality) {
    using namespace kt7;
    constexpr std::int32_t failed = -1000;
    const BusyGuard busy;
    if (!busy.held())
        return 1;
    if (progress == nullptr)
        return failed;
    return guarded(mostThreads, [&] {
        const Settings settings = {
            {fullQuality == 0, bearable(sharpen), bearable(lumaSmooth), bearable(chromaSmooth)},
            chromaMedianMode,
            bearable(grain)};
        return resultOf([&] { return denoise(*progress, image, noise, settings); },
                        [&](int code) {
                            finishFailedCall(*progress);
                            return code + failed;
                        },
                        [&] {
                            finishFailedCall(*progress);
                            return failed;
                        });
    });
}
