// Keeps fine texture from being taken for noise: the noise that a photo can hold at most.
#pragma once

#include "photo/engine.h"

namespace kt7::photo {

/// Noise is everywhere in a photo, texture is not: its calmest places bound the noise of all.
struct NoiseFloor {
    bool measured = false; ///< false when too few places are fit for it; the rest is then 0
    float level = 0.0f;    ///< deviation of luma in calm places, pixels two apart; 1 is full scale
    float fineness = 0.0f; ///< the same for neighbours, over level: near 1 for white noise, near
                           ///< 0.4 where a demosaicing filter has tied neighbours together
};

/// Looks at windows of 16x16 pixels, of middle brightness and without clipping, that are not
/// entirely flat.
NoiseFloor noiseFloorOf(const EngineImage& image);

/// The levels that the first pilot is made with: what was estimated, held together to what the floor
/// allows luma, black and white held near the midtones, then raised to what the eye sees as noise.
QxNoiseLevels guardedLevels(const QxNoiseLevels& estimate, const NoiseFloor& floor);

} // namespace kt7::photo
