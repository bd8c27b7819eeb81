// The denoise call: from the host's pixels to three noise-normalised planes, through the stages,
// back.
#include <algorithm>
#include <limits>

#include "pmdll/src/callGuards.h"
#include "pmdll/src/exports.h"
#include "prim/threshold.h"
#include "qxenhlib/Denoise3DCT.h"
#include "qxenhlib/chromaMedian.h"
#include "qxenhlib/grainStage.h"
#include "qxenhlib/sharpenStage.h"
#include "qxutils/NoiseNormalize.h"
#include "qxutils/qxbase/IMG.h"
#include "qxutils/qxbase/QXRC.h"
#include "qxutils/qxbase/hostFormat.h"
#include "qxutils/qxbase/progress.h"
#include "qxutils/qxbase/rgbYuv.h"

namespace kt7 {
namespace {

using Plane = GIMG<std::int16_t>;

constexpr std::int32_t mostThreads = 4;
constexpr std::int32_t conversionShare = 1000;
constexpr std::int32_t denoiserShare = 97000;
constexpr float sharpenThreshold = 0.01f;
constexpr float grainThreshold = 1e-5f;
constexpr float stageThreshold = 1e-5f; // noise and smoothing at or below it need no denoiser
constexpr float curveClipFactor = 0.95f;

// Strengths and levels that a calculation can bear: NaN and negative values count as off, and what
// is beyond any image is held where products of such numbers stay finite.
float bearable(float value) {
    return value > 0.0f ? std::min(value, 1e6f) : 0.0f;
}

struct Settings {
    float lumaSmooth;
    float sharpen;
    std::int32_t chromaMedianMode;
    float chromaSmooth;
    float grain;
    bool fastMode;
};

std::int32_t paddedSide(std::int32_t side) {
    const std::int64_t padded = (std::int64_t{side} + 96) / 16 * 16 + 16;
    if (padded > std::numeric_limits<std::int32_t>::max())
        raise(noBufferStorage);
    return std::max(256, static_cast<std::int32_t>(padded));
}

void fillPlanes(const PSImage& image, Plane* const planes[3],
                const NoiseNormalize* const tables[3]) {
    if (image.format == formatRgb8) {
        qxRGBToYUV(static_cast<const std::uint8_t*>(image.data), image.rowBytes, image.width,
                   image.height, planes, tables);
        return;
    }
    auto* samples = static_cast<std::uint16_t*>(image.data);
    const std::uint16_t limits[3] = {sampleMax, sampleMax, sampleMax};
    primThresholdGT16uC3I(samples, image.rowBytes, {image.width, image.height}, limits);
    qxRGBToYUV(samples, image.rowBytes, image.width, image.height, planes, tables);
}

void writeBack(Plane* const planes[3], const PSImage& image,
               const NoiseNormalize* const tables[3]) {
    if (image.format == formatRgb8)
        qxYUVToRGB(planes, static_cast<std::uint8_t*>(image.data), image.rowBytes, image.width,
                   image.height, tables);
    else
        qxYUVToRGB(planes, static_cast<std::uint16_t*>(image.data), image.rowBytes, image.width,
                   image.height, tables);
}

// gain: from noise levels to noise on the normalised scale. False when the host cancelled.
bool denoisePlanes(QxProgress& progress, Plane* const planes[3], const QxNoiseLevels& noise,
                   float gain, const Settings& settings) {
    const float y = noise.lumaMid * gain;
    const float u = noise.chromaU * gain;
    const float v = noise.chromaV * gain;
    if (!(std::max({y, u, v, settings.lumaSmooth, settings.chromaSmooth}) > stageThreshold))
        return true;
    Denoise3DCT denoiser;
    progress.phaseBudget = denoiserShare;
    denoiser.progress = &progress;
    const float layerNoise[Denoise3DCT::layers] = {2.5f * y, 2.5f * y, 2.5f * y, 2.5f * y};
    const float channelGain[Denoise3DCT::mostChannels] = {1.0f, u / (y + 1e-6f), v / (y + 1e-6f),
                                                          1.0f};
    denoiser.setParams(settings.fastMode, noise.noiseGrain, layerNoise, channelGain,
                       std::min(0.3f, 0.75f * settings.sharpen), settings.lumaSmooth,
                       settings.chromaSmooth);
    for (std::int32_t c = 0; c < 3; ++c)
        denoiser.addChannel(*planes[c]);
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
        const std::int32_t width = paddedSide(image.width);
        const std::int32_t height = paddedSide(image.height);
        Plane lumaPlane(width, height);
        Plane uPlane(width, height);
        Plane vPlane(width, height);
        Plane* const planes[3] = {&lumaPlane, &uPlane, &vPlane};
        NoiseNormalize curve;
        const float normalised =
            curve.setup(noise.lumaLow, noise.lumaMid, noise.lumaHigh, curveClipFactor);
        const float gain = normalised / (1e-13f + noise.lumaMid);
        const NoiseNormalize* const tables[3] = {&curve, &curve, &curve};

        fillPlanes(image, planes, tables);
        if (qxProgressAdvance(&progress, conversionShare) == 0)
            return 0;

        if (settings.chromaMedianMode > 0) {
            chromaMedian(uPlane, settings.chromaMedianMode);
            chromaMedian(vPlane, settings.chromaMedianMode);
        }
        if (!denoisePlanes(progress, planes, noise, gain, settings))
            return 0;
        if (settings.sharpen > sharpenThreshold) {
            sharpenLuma(lumaPlane, settings.sharpen);
            if (qxProgressAdvance(&progress, progressTotal) == 0)
                return 0;
        }
        if (settings.grain > grainThreshold)
            addGrain(lumaPlane, settings.grain);

        writeBack(planes, image, tables);
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
        const Settings settings = {bearable(lumaSmooth),   bearable(sharpen), chromaMedianMode,
                                   bearable(chromaSmooth), bearable(grain),   fullQuality == 0};
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
