// The library behind the commands, with photos as it takes them and failures as exceptions.
#pragma once

#include "kt7lib/kt7lib.h"
#include "tools/kt7/files/photo.h"

#include <cstdint>
#include <functional>
#include <string>

namespace kt7::tool {

/// The photo as the library takes it: RGB, 16-bit samples of 0..32768.
class LibraryImage {
  public:
    explicit LibraryImage(const Photo& photo);

    /// The library's view; it may write into it.
    PSImage view();

    /// The photo's samples with what the library has changed, rounded once. What it hasn't changed
    /// comes back exactly, the bit that its scale has less than 16 bits included.
    void bringBack(Photo& photo) const;

    const std::vector<std::uint16_t>& samples() const { return samples_; }

  private:
    std::int32_t width_, height_;
    std::vector<std::uint16_t> samples_;
};

/// RGB on 0..255, rounded, for calls on screen pictures.
Bytes screenRgb(const Photo& photo);

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

NoiseEstimate estimateNoise(const Photo& photo);

/// Multiplies the five levels; the shape `noiseGrain` stays.
QxNoiseLevels scaled(const QxNoiseLevels& levels, float lumaFactor, float chromaFactor);

/// Denoises in place. `onProgress` hears fractions from 0 to 1. Raises UserError when the library
/// fails; the pixels are then as they were.
void removeNoise(Photo& photo, const DenoiseSettings& settings,
                 const std::function<void(double)>& onProgress);

} // namespace kt7::tool
