// How strongly to denoise: every number of the rule, and the rule.
#pragma once

#include <cstddef>
#include <cstdint>

#include "include/kt7photo/kt7photo.h"

namespace kt7::photo {

/// What the rule goes by: powers of 8x8 DCT coefficients in the calmest blocks of a photo, on the
/// scale 0..255. Luma is O0, colour the mean of O1 and O2; with u the sum of a coefficient's two
/// frequencies, coarse are u of 1 and 2, middle 3 to 6, fine from 7.
struct Features {
    float fineOverMiddle; ///< of what a first pilot took from luma
    float takenMiddle;    ///< of the same, the middle power
    float fineColour, middleColour;
    float fineLuma, middleLuma;
    float coarseColour; ///< over that of luma
    /// Middle luma power that a twentieth of the blocks stay below, over that of a quarter: near 1
    /// where noise is all there is, near 0 where it is texture.
    float evenness;
    float whiteColour, whiteLuma; ///< variances if it is white noise, away from clipped places
};

/// What kind of noise it is, each 0..1.
struct NoiseKind {
    float white;       ///< neither a camera nor an encoder has filtered it
    float whiteColour; ///< nor made colour coarser; at most `white`
    float open;        ///< as strong in colour as in luma: filtered, but not by an encoder
    float emptied;     ///< an encoder has taken the fine colour out
    float lumaNoise, colourNoise; ///< how sure it is that it is noise and not texture
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

// White noise that is strong enough reaches the ends of the scale: its power is measured away from
// them, wholly so from the second power on.
inline constexpr float strongWhite = 200.0f, clippingWhite = 600.0f;
inline constexpr std::size_t fewBlocks = 400;

// The second round on white noise takes its pilot's word: factors on the spectrum.
inline constexpr float secondLuma = 1.0f, secondColour = 1.3f;

} // namespace rule

NoiseKind kindOf(const Features& features) noexcept;

/// Variances of luma and colour that count where the noise is white.
struct WhitePower {
    float luma, colour;
};
WhitePower whitePower(const Features& features, const NoiseKind& kind) noexcept;

/// The levels to denoise with; `first` are those that the first pilot was made with.
QxNoiseLevels levelsFor(const QxNoiseLevels& first, const Features& features,
                        const NoiseKind& kind) noexcept;

/// Smoothing of colour that goes with them.
float chromaSmoothFor(const NoiseKind& kind) noexcept;

/// How strongly the spectrum counts in the Wiener stage, and how often that runs.
struct StageStrength {
    float luma, colour;
    std::int32_t rounds;
};
StageStrength stageStrengthFor(const Features& features, const NoiseKind& kind) noexcept;

} // namespace kt7::photo
