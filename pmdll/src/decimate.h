// Reduced copy of a host image for measuring.
#pragma once

#include <cstdint>
#include <memory>

#include "include/kt7lib/kt7types.h"

namespace kt7 {

/// Copies every `factor`-th pixel of every `factor`-th row, from 16 pixels inside the image on and
/// unfiltered, so that the noise of the pixels stays what it was. buffer receives interleaved RGB
/// of 16 bits on the scale 0..32767, its rows stepBytes apart; 8-bit samples count 128 each. The
/// image must be usable in the sense of isUsable. Returns 1, or 0 with nothing allocated when a
/// side of the copy would be below 32 pixels.
std::int32_t kt7DecPSImage(const PSImage* image, std::int32_t factor,
                           std::unique_ptr<std::uint16_t[]>* buffer, std::int32_t* stepBytes,
                           std::int32_t* width, std::int32_t* height);

} // namespace kt7
