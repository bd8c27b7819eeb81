// Every default of the command line in one place.
#pragma once

#include <cstdint>

namespace kt7::tool::defaults {

// Noise that a camera's demosaicing and JPEG engine have blurred measures lower than it looks; fine
// noise measures about right. At --strength 1 the measured levels are raised by these factors
// before they go to the denoiser (textureGuard.h says which); levels given with --noise are only
// multiplied by --strength.
inline constexpr float lumaFactorCoarse = 2.2f;
inline constexpr float chromaFactorCoarse = 3.5f;
inline constexpr float lumaFactorFine = 1.6f;
inline constexpr float chromaFactorFine = 2.0f;

inline constexpr float strength = 1.0f;
inline constexpr float noiseGrain = 0.3f;
inline constexpr float lumaSmooth = 0.0f;
inline constexpr float sharpen = 0.0f;
inline constexpr std::int32_t chromaMedian = 0;
inline constexpr float chromaSmooth = 0.0f;
inline constexpr float grain = 0.0f;

inline constexpr int lossyQuality = 95;

// Levels of kt7 levels, 0..255: a picture of normal exposure, and colour differences that show.
inline constexpr std::int32_t brightnessTarget = 110;
inline constexpr std::int32_t differenceTarget = 10;

inline constexpr std::int32_t demoWidth = 768;
inline constexpr std::int32_t demoHeight = 512;

} // namespace kt7::tool::defaults
