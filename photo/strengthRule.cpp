#include "photo/strengthRule.h"

#include <algorithm>
#include <cmath>

namespace kt7::photo {
namespace {

/// 0 up to `from`, 1 beyond `to`, straight between them.
float rising(float value, float from, float to) {
    return std::clamp((value - from) / (to - from), 0.0f, 1.0f);
}

QxNoiseLevels mixed(const QxNoiseLevels& a, const QxNoiseLevels& b, float share) {
    return {std::lerp(a.lumaMid, b.lumaMid, share),   std::lerp(a.chromaU, b.chromaU, share),
            std::lerp(a.chromaV, b.chromaV, share),   std::lerp(a.lumaLow, b.lumaLow, share),
            std::lerp(a.lumaHigh, b.lumaHigh, share), std::lerp(a.noiseGrain, b.noiseGrain, share)};
}

} // namespace

NoiseKind kindOf(const Features& features) noexcept {
    NoiseKind kind{};
    kind.white = rising(features.fineOverMiddle, 0.6f, 0.75f);
    kind.emptied = 1.0f - rising(features.fineColour, 0.05f, 0.15f);
    kind.noiseLike = std::max(kind.emptied, rising(features.coarseColour, 0.12f, 0.35f));
    return kind;
}

float whiteLumaPower(const Features& features) noexcept {
    // White noise is as strong in colour; luma has texture too.
    return std::min(features.fineLuma, 1.3f * features.fineColour);
}

QxNoiseLevels levelsFor(const QxNoiseLevels& first, const Features& features,
                        const NoiseKind& kind) noexcept {
    const float certain = 1.0f - 0.3f * (1.0f - kind.noiseLike);
    const float luma = (1.3f + 0.5f * kind.emptied) * certain;
    const float chroma = (2.0f + 1.5f * kind.emptied) * certain;
    const QxNoiseLevels coloured = {first.lumaMid * luma,   first.chromaU * chroma,
                                    first.chromaV * chroma, first.lumaLow * luma,
                                    first.lumaHigh * luma,  first.noiseGrain};
    // Deviations of white noise of Y, U and V as the denoiser defines them, over that of a sample.
    constexpr float yShare = 0.668f, uShare = 0.544f, vShare = 0.808f;
    const float lumaDeviation = std::sqrt(whiteLumaPower(features)) / 255.0f;
    const float colourDeviation = std::sqrt(features.fineColour) / 255.0f;
    const float y = 1.3f * yShare * lumaDeviation;
    const QxNoiseLevels white = {y,
                                 0.8f * uShare * colourDeviation,
                                 0.8f * vShare * colourDeviation,
                                 y,
                                 y,
                                 first.noiseGrain};
    return mixed(coloured, white, kind.white);
}

float chromaSmoothFor(const NoiseKind& kind) noexcept {
    return kind.emptied > 0.5f ? 0.021f * kind.emptied : 0.0f;
}

StageStrength stageStrengthFor(const NoiseKind& kind) noexcept {
    const float luma = std::lerp(2.2f * (1.0f + 4.0f * kind.emptied), 1.3f, kind.white);
    const float colour = std::lerp(3.0f * (1.0f + 2.0f * kind.emptied), 1.5f, kind.white);
    const float certain = std::lerp(1.0f - 0.5f * (1.0f - kind.noiseLike), 1.0f, kind.white);
    return {luma * certain, colour * certain, kind.white > 0.5f ? 2 : 1};
}

} // namespace kt7::photo
