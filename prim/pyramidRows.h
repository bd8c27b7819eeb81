// Row steps of the 16-bit Laplacian pyramid. Exact on every CPU target.
#pragma once

#include <cstdint>

namespace kt7 {

/// One row of the half-size low-pass image from five rows of `width` samples. scratch: at least
/// 3 * (outWidth + 2) elements; outWidth at most width / 2.
void reducePyramidRow(const std::int16_t* const rows[5], std::int32_t width, std::int32_t outWidth,
                      std::int32_t* scratch, std::int16_t* dst);

/// One row of the double-size image: an odd one from the rows `here` and `below` it, an even one
/// from all three. Rows have srcWidth samples; scratch: at least 3 * (width / 2 + 4) elements.
void expandPyramidRow(const std::int16_t* above, const std::int16_t* here,
                      const std::int16_t* below, std::int32_t srcWidth, std::int32_t odd,
                      std::int32_t* scratch, std::int16_t* dst, std::int32_t width);

} // namespace kt7
