// The time that block matching alone takes, which no call can go below.
#pragma once

#include <cstdint>

#include "include/kt7lib/kt7types.h"

namespace kt7::bench {

/// Processor seconds, divided by the team, for building the search index of every tile of every
/// layer and answering its queries, with the tiles, trees and checks that a denoise call over the
/// same 8-bit RGB pixels uses, on the present team and with nothing else around them but the making
/// of the features, which isn't counted.
double matchingFloor(const std::uint8_t* rgb, std::int32_t width, std::int32_t height,
                     const QxNoiseLevels& noise, bool fastMode);

} // namespace kt7::bench
