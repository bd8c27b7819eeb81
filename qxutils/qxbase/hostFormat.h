// What the format codes of a host image mean, and the checks of a host's buffers.
#pragma once

#include <cstdint>

#include "include/kt7lib/kt7types.h"

namespace kt7 {

/// Format code of 8-bit RGB; the denoiser and the estimate read every other code as 16-bit RGB.
inline constexpr std::int32_t formatRgb8 = 1;

/// Top of the 16-bit samples inside the library; the host's own scale ends one above it.
inline constexpr std::int32_t sampleMax = 32767;

/// Channels of a pixel: 3, 1, or 0 for an unknown code.
std::int32_t channelsOfFormat(std::int32_t code) noexcept;

/// Bytes of a sample: 1 or 2; 1 for an unknown code.
std::int32_t bytesPerChannelOfFormat(std::int32_t code) noexcept;

/// True when the image has data, both sides are at least 1 and a row fits into rowBytes, with 3
/// channels of `bytesPerSample` each.
bool isUsable(const PSImage* image, std::int32_t bytesPerSample) noexcept;

} // namespace kt7
