#include "photo/strengthRule.h"

#include <algorithm>
#include <cmath>

#include "photo/engine.h"

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

QxNoiseLevels lesser(const QxNoiseLevels& a, const QxNoiseLevels& b) {
    return {std::min(a.lumaMid, b.lumaMid),   std::min(a.chromaU, b.chromaU),
            std::min(a.chromaV, b.chromaV),   std::min(a.lumaLow, b.lumaLow),
            std::min(a.lumaHigh, b.lumaHigh), a.noiseGrain};
}

/// 1 where it is noise for certain, `least` where it may well be texture.
float bySureness(float least, float sureness) {
    return least + (1.0f - least) * sureness;
}

constexpr float tiny = 0.001f; // added to what is divided by

} // namespace

NoiseKind kindOf(const Features& f) noexcept {
    NoiseKind kind{};
    const float fineColourOverLuma = f.fineColour / (f.fineLuma + tiny);
    // Of very strong noise the first pilot leaves some of the finest.
    kind.white =
        rising(f.fineOverMiddle + 0.1f * rising(f.takenMiddle, 300.0f, 900.0f), 0.6f, 0.75f);
    kind.whiteColour = kind.white * rising(fineColourOverLuma, 0.1f, 0.3f);
    constexpr float rounding = 0.12f; // power that rounding to 8 bits makes
    const float colourOverLuma = std::max((f.fineColour - rounding) / (f.fineLuma + 0.5f),
                                          (f.middleColour - rounding) / (f.middleLuma + 0.5f));
    kind.open = rising(colourOverLuma, 0.25f, 0.45f);
    // Sharpening lifts what an encoder left of fine colour above the first limits, but keeps it far
    // below luma. Where luma is white or uneven, it may be texture that has little colour.
    const float lacking = (1.0f - rising(fineColourOverLuma, 0.02f, 0.04f)) *
                          (1.0f - rising(f.fineOverMiddle, 0.18f, 0.26f)) *
                          rising(f.evenness, 0.20f, 0.35f) * rising(f.fineLuma, 2.0f, 4.0f);
    kind.emptied =
        std::max(1.0f - rising(f.fineColour, 0.05f, 0.15f), lacking) * (1.0f - kind.open);
    const float even =
        std::max(rising(f.evenness, 0.20f, 0.35f), rising(f.takenMiddle, 60.0f, 120.0f));
    const float coloured = rising(f.coarseColour, 0.11f, 0.24f);
    const float faint = std::clamp(std::log2(10.0f / (f.takenMiddle + tiny)) / 1.5f, 0.0f, 1.0f);
    const float inEmptied = std::max(even, faint);
    // Strong, even and nearly white: nothing but noise is like that, though colour has none.
    const float nearlyWhite = rising(f.fineOverMiddle, 0.4f, 0.55f) *
                              rising(f.takenMiddle, 60.0f, 120.0f) *
                              rising(f.evenness, 0.20f, 0.35f);
    kind.lumaNoise = std::lerp(
        std::lerp(std::max(even * (0.7f + 0.3f * coloured), nearlyWhite), inEmptied, kind.emptied),
        1.0f, kind.open);
    kind.colourNoise =
        std::lerp(std::lerp(std::max(coloured, even), inEmptied, kind.emptied), 1.0f, kind.open);
    return kind;
}

WhitePower whitePower(const Features& f, const NoiseKind& kind) noexcept {
    // White noise is about as strong in colour; luma has texture too.
    const float luma = std::min(std::max(f.whiteLuma, 0.9f * f.whiteColour), 1.25f * f.whiteColour);
    // Strong noise that is even all over is noise, also where colour lacks it.
    const float even =
        std::max(rising(f.evenness, 0.20f, 0.35f), rising(f.takenMiddle, 60.0f, 120.0f));
    const float trust = even * rising(f.fineLuma, 8.0f, 48.0f) * (1.0f - kind.open);
    return {luma + trust * std::max(f.whiteLuma - luma, 0.0f), f.whiteColour};
}

QxNoiseLevels levelsFor(const QxNoiseLevels& first, const Features& f,
                        const NoiseKind& kind) noexcept {
    const float least = 0.35f + 0.2f * kind.emptied;
    const float coarseness = std::clamp(1.2f * std::pow(3.0f / (f.fineLuma + tiny), 0.25f) *
                                            std::sqrt(0.15f / (f.fineOverMiddle + tiny)),
                                        0.85f, 1.8f);
    const QxNoiseLevels encoded = scaled(first, coarseness * bySureness(least, kind.lumaNoise),
                                         1.5f * bySureness(least, kind.colourNoise));
    // Deviations of Y, U and V over that of the coefficients, as the denoiser takes them best.
    const auto levels = [&](float luma, float u, float v) {
        return QxNoiseLevels{luma, u, v, luma, luma, first.noiseGrain};
    };
    const float middle = std::sqrt(f.middleColour) / 255.0f;
    const QxNoiseLevels open =
        lesser(scaled(first, 0.65f, 1.0f), levels(0.99f * middle, 0.65f * middle, 0.97f * middle));
    const WhitePower power = whitePower(f, kind);
    const float luma = std::sqrt(power.luma) / 255.0f, colour = std::sqrt(power.colour) / 255.0f;
    const QxNoiseLevels white = levels(0.868f * luma, 0.435f * colour, 0.646f * colour);
    const QxNoiseLevels filtered = mixed(encoded, open, kind.open);
    const QxNoiseLevels colours = mixed(filtered, white, kind.whiteColour);
    QxNoiseLevels result = mixed(filtered, white, kind.white);
    result.chromaU = colours.chromaU;
    result.chromaV = colours.chromaV;
    return result;
}

float chromaSmoothFor(const NoiseKind& kind) noexcept {
    const float share = kind.emptied * kind.colourNoise * (1.0f - kind.white);
    return share > 0.5f ? 0.021f * share : 0.0f;
}

StageStrength stageStrengthFor(const Features& f, const NoiseKind& kind) noexcept {
    const float least = 0.05f + 0.25f * kind.emptied;
    const auto certain = [&](float noise) { return bySureness(least, noise * noise); };
    float coarseness = std::clamp(std::pow(0.15f / (f.fineOverMiddle + tiny), 2.5f), 0.35f, 1.6f);
    coarseness = 1.0f + (coarseness - 1.0f) * std::min(f.fineLuma / 2.0f, 1.0f);
    // The whiter the noise is, the less of it calm blocks hide, and the nearer it is to what white
    // noise takes.
    const float lowest = std::lerp(0.75f, 0.95f, rising(f.fineOverMiddle, 0.4f, 0.55f));
    const float encodedLuma = std::clamp(6.0f / (f.fineLuma + tiny) * coarseness, lowest, 16.0f) *
                              certain(kind.lumaNoise);
    const float coarsened = std::max(kind.emptied, kind.white - kind.whiteColour);
    const float encodedColour = 2.5f * (1.0f + 1.4f * coarsened) * certain(kind.colourNoise);
    return {std::lerp(std::lerp(encodedLuma, 1.2f, kind.open), 1.3f, kind.white),
            std::lerp(std::lerp(encodedColour, 1.6f, kind.open), 1.5f, kind.whiteColour),
            kind.white > 0.5f ? 2 : 1};
}

} // namespace kt7::photo
