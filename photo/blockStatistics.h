// What the blocks of a photo tell about its noise.
#pragma once

#include <cstdint>
#include <vector>

#include "include/kt7photo/kt7photo.h"
#include "photo/Planes.h"
#include "photo/strengthRule.h"

namespace kt7::photo {

/// A block of 8x8 pixels: where it starts.
struct BlockPlace {
    std::int32_t x, y;
};

/// Blocks without samples near the ends of the scale, or all of them when these are few. `photo`
/// holds R, G, B interleaved on the scale 0..32768, `rowSamples` from row to row.
std::vector<BlockPlace> unclipped(const std::vector<BlockPlace>& blocks, const std::uint16_t* photo,
                                  std::size_t rowSamples);

/// Features by the calmest of the blocks. The pilot is a denoised copy of the photo.
Features featuresOf(const Planes& photo, const Planes& pilot,
                    const std::vector<BlockPlace>& blocks);

/// Sets spectrum, intensity and gain, by what the pilot lacks of the photo in the calmest blocks of
/// each band of intensity. white: how far features say that the noise is white, with this power.
void setSpectrum(Kt7PhotoNoise& noise, const Planes& photo, const Planes& pilot,
                 const std::vector<BlockPlace>& blocks, float white, float lumaPower,
                 float colourPower);

} // namespace kt7::photo
