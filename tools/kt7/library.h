// The two library calls behind the commands, with failures as exceptions.
#pragma once

#include "kt7lib/kt7lib.h"

#include <cstdint>
#include <functional>
#include <string>

namespace kt7::tool {

struct Photo;

/// Everything the denoiser can be told; the meaning is that of qxDenoiseKt7.
struct DenoiseSettings {
    QxNoiseLevels levels{};
    float lumaSmooth = 0.0f;
    float sharpen = 0.0f;
    std::int32_t chromaMedian = 0;
    float chromaSmooth = 0.0f;
    float grain = 0.0f;
    bool fast = false;
};

/// Noise levels of a photo. `measured` is false, and the levels are next to nothing, when a side is
/// below 148 pixels.
struct NoiseEstimate {
    QxNoiseLevels levels{};
    bool measured = false;
};

/// What is said when it was not measured.
inline constexpr const char* notMeasured =
    "its noise can't be measured (that takes 148 pixels a side)";

NoiseEstimate estimateNoise(Photo& photo);

/// Multiplies the five levels; the shape `noiseGrain` stays.
QxNoiseLevels scaled(const QxNoiseLevels& levels, float lumaFactor, float chromaFactor);

/// Denoises in place. `onProgress` hears fractions from 0 to 1. Raises UserError when the library
/// fails and Cancelled when a signal came; the pixels are then not to be used.
void denoise(Photo& photo, const DenoiseSettings& settings,
             const std::function<void(double)>& onProgress);

} // namespace kt7::tool
