// The denoiser of kt7lib, as its exported functions offer it, one call of the process at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "include/kt7lib/kt7lib.h"
#include "photo/progress.h"

namespace kt7::photo {

/// A picture in the form that the denoiser takes: R, G, B, 16 bits on the scale 0..32768.
struct EngineImage {
    static constexpr float top = 32768.0f;

    /// The samples are undefined. Raises kt7PhotoNoMemory.
    EngineImage(std::int32_t w, std::int32_t h);

    std::uint16_t* row(std::int32_t y) const {
        return rgb.get() + static_cast<std::size_t>(y) * static_cast<std::size_t>(width) * 3;
    }
    PSImage record() const { return {3, rgb.get(), width * 6, width, height}; }

    std::int32_t width, height;
    std::unique_ptr<std::uint16_t[]> rgb;
};

/// The luma that the denoiser works on (ITU-R BT.601).
constexpr float engineLuma(float r, float g, float b) {
    return 0.299f * r + 0.587f * g + 0.114f * b;
}

struct Looks {
    float lumaSmooth = 0.0f;
    float sharpen = 0.0f;
    std::int32_t chromaMedian = 0;
    float chromaSmooth = 0.0f;
    float grain = 0.0f;
};

/// Noise levels of an image with 148 pixels a side or more, else next to nothing. Raises
/// kt7PhotoNoMemory.
QxNoiseLevels estimatedLevels(const EngineImage& image);

/// Denoises in place. While another call of the process denoises, it waits and goes on reporting.
/// Raises what the host's callback or the denoiser ends it with.
void denoise(EngineImage& image, const QxNoiseLevels& levels, const Looks& looks, bool full,
             Progress& progress);

/// Multiplies the levels of luma and of chroma; the shape `noiseGrain` stays.
QxNoiseLevels scaled(const QxNoiseLevels& levels, float luma, float chroma);

} // namespace kt7::photo
