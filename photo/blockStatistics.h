// What the blocks of a photo tell about its noise.
#pragma once

#include <cstdint>
#include <vector>

#include "include/kt7photo/kt7photo.h"
#include "photo/Planes.h"
#include "photo/engine.h"
#include "photo/strengthRule.h"

namespace kt7::photo {

/// A block of 8x8 pixels: where it starts.
struct BlockPlace {
    std::int32_t x, y;
};

/// Blocks whose R, G and B lie above `low` and below `high`, on the scale 0..255.
std::vector<BlockPlace> blocksWithin(const std::vector<BlockPlace>& blocks,
                                     const EngineImage& image, float low, float high);

/// Features by the calmest of `blocks`, those without clipped samples. The pilot is a denoised copy
/// of the photo, as planes and as it came; `all` blocks count where clipping is judged by it.
Features featuresOf(const Planes& photo, const Planes& pilot, const EngineImage& pilotImage,
                    const std::vector<BlockPlace>& blocks, const std::vector<BlockPlace>& all);

/// Sets spectrum, intensity and gain, by what the pilot lacks of the photo in the calmest blocks of
/// each band of intensity.
void setSpectrum(Kt7PhotoNoise& noise, const Planes& photo, const Planes& pilot,
                 const std::vector<BlockPlace>& blocks, const NoiseKind& kind,
                 const WhitePower& white);

} // namespace kt7::photo
