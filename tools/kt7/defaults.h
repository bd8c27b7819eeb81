// Defaults of the command line in one place; those of denoising are the library's.
#pragma once

#include <cstdint>

namespace kt7::tool::defaults {

inline constexpr int lossyQuality = 95;

// Levels of kt7 levels, 0..255: a picture of normal exposure, and colour differences that show.
inline constexpr std::int32_t brightnessTarget = 110;
inline constexpr std::int32_t differenceTarget = 10;

inline constexpr std::int32_t demoWidth = 768;
inline constexpr std::int32_t demoHeight = 512;

} // namespace kt7::tool::defaults
