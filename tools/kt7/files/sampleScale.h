// Conversions between the sample scales of files and the 0..32768 scale of 16-bit host images.
// Every one rounds to the nearest value.
#pragma once

#include <algorithm>
#include <cstdint>

namespace kt7::tool {

inline constexpr std::uint32_t scale15Max = 32768;

/// 0..65535 to 0..32768.
inline std::uint16_t scale16To15(std::uint16_t v) {
    return static_cast<std::uint16_t>((v * scale15Max + 32767u) / 65535u);
}

/// 0..32768 to 0..65535; samples above the scale count as its top.
inline std::uint16_t scale15To16(std::uint16_t v) {
    return static_cast<std::uint16_t>((std::min<std::uint32_t>(v, scale15Max) * 65535u + 16384u) /
                                      scale15Max);
}

/// 0..32768 to 0..255.
inline std::uint8_t scale15To8(std::uint16_t v) {
    return static_cast<std::uint8_t>((std::min<std::uint32_t>(v, scale15Max) * 255u + 16384u) /
                                     scale15Max);
}

/// 0..1 to 0..32768; the caller has checked the range.
inline std::uint16_t scaleFloatTo15(float v) {
    return static_cast<std::uint16_t>(v * 32768.0f + 0.5f);
}

} // namespace kt7::tool
