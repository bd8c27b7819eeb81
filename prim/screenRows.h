// Rows of the previews. n counts pixels. Screen pixels are B, G, R, A; 16-bit samples are divided
// by 128 and held at 255 on the way there. Exact on every CPU target.
#pragma once

#include <cstdint>

namespace kt7 {

/// With A = 255. `streamed` writes past the cache, for images that it can't hold anyway.
void toScreen8Row(const std::uint8_t* rgb, std::uint8_t* bgra, std::int32_t n, bool streamed);
void toScreen16Row(const std::uint16_t* rgb, std::uint8_t* bgra, std::int32_t n, bool streamed);

void fromScreenRow(const std::uint8_t* bgra, std::uint8_t* rgb, std::int32_t n);

/// A stays.
void intoScreenRow(const std::uint8_t* rgb, std::uint8_t* bgra, std::int32_t n);

/// G, (B - G) / 2 + 128 and (R - G) / 2 + 128, the divisions truncating.
void splitGDbDrRow(const std::uint8_t* rgb, std::uint8_t* g, std::uint8_t* db, std::uint8_t* dr,
                   std::int32_t n);

void greyToRgbRow(const std::uint8_t* grey, std::uint8_t* rgb, std::int32_t n);

} // namespace kt7
