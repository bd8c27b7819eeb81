// The last stage of the best quality: groups of similar blocks, filtered with the measured spectrum
// of the noise.
#pragma once

#include "photo/Planes.h"
#include "photo/progress.h"

namespace kt7::photo {

/// What the filter takes for noise.
struct StageNoise {
    static constexpr std::int32_t bands = 6;

    /// For a pilot that is good already: half the blocks in a group, but twice as many groups in luma.
    bool refining;
    float power[3][64];     ///< of each plane, by coefficient of an 8x8 DCT
    float intensity[bands]; ///< mean brightness of each band, of O0, rising
    float gain[3][bands];   ///< factor on the power there
};

/// Second step of block-matching denoising (Dabov, Foi, Katkovnik and Egiazarian 2007) with coloured
/// noise that depends on intensity: blocks that are similar in the pilot are transformed together,
/// and each coefficient of the noisy photo keeps the part that the pilot's energy has in the sum of
/// it and the noise. The pilot becomes the result.
///
/// Works in strips of tiles; the result does not depend on the number of threads or their timing.
/// Raises what ends the call.
void wienerStage(const Planes& noisy, Planes& pilot, const StageNoise& noise, Progress& progress);

} // namespace kt7::photo
