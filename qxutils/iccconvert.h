// Colour management of screen buffers.
#pragma once

#include <cstdint>

namespace kt7 {

/// Takes a buffer of B, G, R, A pixels from the colours of one ICC profile to those of another,
/// relative colorimetric, in place; A stays. A profile that is null or has a size below 1 stands
/// for sRGB; with both pointers null, or both sizes below 1, nothing happens. Gives 1, or 0 with
/// the buffer as it was when a profile or the transform can't be made. Raises std::bad_alloc when
/// there is no memory for the rows.
std::int32_t iccConvertQImage(const void* sourceProfile, std::int32_t sourceProfileSize,
                              const void* targetProfile, std::int32_t targetProfileSize,
                              std::uint8_t* dst, std::int32_t dstStep, std::int32_t dstWidth,
                              std::int32_t dstHeight);

} // namespace kt7
