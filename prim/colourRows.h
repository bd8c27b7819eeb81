// Rows of n pixels between interleaved RGB and YUV planes, through one table for each of R, G, B.
// 8-bit samples go through tables of 256 entries, 16-bit ones (held at 32767) and the way back
// through tables of 32768. Exact on every CPU target.
#pragma once

#include <cstdint>

namespace kt7 {

void rgb8ToYuvRow(const std::uint8_t* rgb, const std::int16_t* const tables[3], std::int16_t* y,
                  std::int16_t* u, std::int16_t* v, std::int32_t n);
void rgb16ToYuvRow(const std::uint16_t* rgb, const std::int16_t* const tables[3], std::int16_t* y,
                   std::int16_t* u, std::int16_t* v, std::int32_t n);

/// 8-bit samples are the table's entries divided by 128.
void yuvToRgb8Row(const std::int16_t* y, const std::int16_t* u, const std::int16_t* v,
                  const std::int16_t* const tables[3], std::uint8_t* rgb, std::int32_t n);
void yuvToRgb16Row(const std::int16_t* y, const std::int16_t* u, const std::int16_t* v,
                   const std::int16_t* const tables[3], std::uint16_t* rgb, std::int32_t n);

} // namespace kt7
