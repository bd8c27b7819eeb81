// Keeps fine texture from being taken for noise: the noise that a photo can hold at most, and how
// fine it is.
#pragma once

#include "kt7lib/kt7lib.h"
#include "tools/kt7/defaults.h"
#include "tools/kt7/json.h"
#include "tools/kt7/library.h"

namespace kt7::tool {

/// Noise is everywhere in a photo, texture is not: its calmest places bound the noise of all.
struct NoiseFloor {
    bool measured = false; ///< false when too few places are fit for it; the rest is then 0
    float level = 0.0f;    ///< deviation of luma in calm places, pixels two apart; 1 is full scale
    float fineness = 0.0f; ///< the same for neighbours, over level: near 1 for white noise, near
                           ///< 0.4 where a demosaicing filter has tied neighbours together
};

/// Looks at windows of 16x16 pixels, of middle brightness and without clipping, that are not
/// entirely flat.
NoiseFloor noiseFloorOf(const Photo& photo);

/// Its three values by name.
Json jsonOf(const NoiseFloor& floor);

/// How far measured levels are raised.
struct LevelFactors {
    float luma, chroma;
};
inline constexpr LevelFactors coarseFactors{defaults::lumaFactorCoarse,
                                            defaults::chromaFactorCoarse};
inline constexpr LevelFactors fineFactors{defaults::lumaFactorFine, defaults::chromaFactorFine};

/// The levels to denoise with: held together to what the floor allows luma,
/// black and white held near the midtones, then all of them raised to what
/// the eye sees as noise and multiplied by `strength`; between `coarse` and `fine` the fineness
/// decides. Without a measured floor nothing is held and `fine` counts. The shape `noiseGrain`
/// stays.
QxNoiseLevels guardedLevels(const QxNoiseLevels& measured, const NoiseFloor& floor, float strength,
                            LevelFactors coarse = coarseFactors, LevelFactors fine = fineFactors);

/// How levels are chosen without knowing the noise: by every command and by the measurements of
/// quality.
struct BlindRule {
    float strength = defaults::strength;
    float noiseGrain = defaults::noiseGrain;
    LevelFactors coarse = coarseFactors, fine = fineFactors;
    bool guard = true; ///< false believes the measured noise as it is, and takes it for coarse
};
struct BlindLevels {
    QxNoiseLevels levels{};
    NoiseEstimate estimate;
    NoiseFloor floor;
};
BlindLevels blindLevels(const Photo& photo, const BlindRule& rule);

} // namespace kt7::tool
