// How strongly to denoise: every number of the rule, and the rule.
#pragma once

#include <cstdint>

#include "include/kt7photo/kt7photo.h"

namespace kt7::photo {

/// What the rule goes by: powers of 8x8 DCT coefficients in the calmest blocks of a photo, on the
/// scale 0..255, u being the sum of a coefficient's two frequencies. Luma is O0, colour O1 and O2.
struct Features {
    float fineOverMiddle; ///< of what a first pilot took from luma: u from 7 over u from 3 to 6
    float fineColour;     ///< of colour in the photo, u from 7
    float fineLuma;       ///< the same of luma
    float coarseColour;   ///< u of 1 and 2 in the photo: colour over luma
};

/// What kind of noise it is, each 0..1.
struct NoiseKind {
    float white;     ///< neither a camera nor an encoder has filtered it
    float emptied;   ///< an encoder has taken the fine colour out
    float noiseLike; ///< noise for certain; 0 where it may be texture
};

namespace rule {

/// A number for coarse noise, which a camera has filtered, and one for fine noise.
struct ByFineness {
    float coarse, fine;
};

// The first pilot. Noise that a camera's demosaicing and JPEG engine have blurred measures lower than
// it looks; fine noise measures about right.
inline constexpr ByFineness firstLuma{2.2f, 1.6f}, firstChroma{3.5f, 2.0f};
inline constexpr float noiseGrain = 0.3f;

// The twentieth part of the windows is calm in all but the busiest photos; in white noise their
// deviation reads low by this factor, as they are the lowest of many measurements.
inline constexpr float calmShare = 0.05f, calmBias = 0.88f;
// The calm places of a photo may be calmer than its noise is elsewhere: dark, or smoothed by the
// camera. Fine noise was not smoothed.
inline constexpr ByFineness allowance{1.25f, 1.1f};
// The levels of black and white are extrapolated, wildly at times.
inline constexpr float mostAtEnds = 1.5f;
// At most the first, noise has the grain of a demosaicing filter; from the second on it is fine.
inline constexpr float coarseFineness = 0.45f, fineFineness = 0.6f;

// Features are those of this share of the blocks.
inline constexpr float featureShare = 0.05f;

// The spectrum is that of this share of the blocks of each band of intensity; bands whose calmest
// blocks are busier than this share of all blocks count little.
inline constexpr float spectrumShare = 0.1f, calmBand = 0.35f, busyWeight = 0.15f;
// The mean of a block is told from texture least of all; it holds at least this much more than its
// neighbours.
inline constexpr float meanOverNeighbours = 1.2f;
// What calm blocks of a camera's JPEG hide of the noise elsewhere: factors for coarse, middle and
// fine coefficients, wholly below the first fine over middle power and not at all from the second.
inline constexpr float hiddenLuma[3] = {4.0f, 3.0f, 2.3f}, hiddenColour[3] = {6.0f, 3.0f, 1.5f};
inline constexpr float hiddenWholly = 0.30f, hiddenNot = 0.42f;
// From the first to the second the measured spectrum gives way to a flat one.
inline constexpr float flatFrom = 0.55f, flatTo = 0.75f;
inline constexpr float leastPower = 0.02f;

/// The second round on white noise takes its pilot's word: factors on the spectrum.
inline constexpr float secondLuma = 1.1f, secondColour = 1.2f;

} // namespace rule

NoiseKind kindOf(const Features& features) noexcept;

/// The levels to denoise with; `first` are those that the first pilot was made with.
QxNoiseLevels levelsFor(const QxNoiseLevels& first, const Features& features,
                        const NoiseKind& kind) noexcept;

/// Smoothing of colour that goes with them.
float chromaSmoothFor(const NoiseKind& kind) noexcept;

/// Power of white noise in luma, by the features.
float whiteLumaPower(const Features& features) noexcept;

/// How strongly the spectrum counts in the Wiener stage, and how often that runs.
struct StageStrength {
    float luma, colour;
    std::int32_t rounds;
};
StageStrength stageStrengthFor(const NoiseKind& kind) noexcept;

} // namespace kt7::photo
