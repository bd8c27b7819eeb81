// The denoiser: pyramids of all planes, and the layers that filter them from coarse to fine.
#pragma once

#include <cstdint>
#include <memory>

#include "include/kt7lib/kt7types.h"
#include "qxenhlib/PyramidLap16s.h"
#include "qxutils/qxbase/IMG.h"

namespace kt7 {

/// Denoises three planes (0 luma, 1 and 2 chroma) in place. Each layer matches 8x8 blocks and
/// hard-thresholds groups of eight in a three-dimensional DCT (after Dabov, Foi, Katkovnik and
/// Egiazarian 2007), on one level of a Laplacian pyramid; the finest chroma detail is cleaned by a
/// complex wavelet instead.
///
/// Order of use: construct, set `progress`, setParams, addChannel for planes 0, 1, 2, run once.
class Denoise3DCT {
  public:
    static constexpr std::int32_t layers = 4;
    static constexpr std::int32_t mostChannels = 4;
    static constexpr std::int32_t pyramidDepth = 3;
    static constexpr std::int32_t smallestSide = 256;

    std::int32_t numTrees[layers] = {2, 2, 2, 2};   ///< trees of the matching forest
    std::int32_t checks[layers] = {32, 32, 32, 32}; ///< leaves that one search may visit
    std::int32_t blockStep[layers] = {3, 3, 3, 3};  ///< pixels between reference blocks
    float baseFactor = 0.2f;                        ///< shape of the chroma detail's noise
    float layerNoise[layers] = {};                  ///< noise, where 1.0 is 32768 steps
    float channelGain[mostChannels] = {};           ///< noise of a plane relative to plane 0
    std::int32_t channelCount = 0;                  ///< planes added so far
    std::unique_ptr<PyramidLap16s> pyramids[mostChannels];
    std::unique_ptr<float[]> thresholdTables[layers]; ///< noise over the 64 block frequencies
    float boost = 0.0f;                               ///< contrast given back to filtered groups
    float lumaSmooth = 0.0f;                          ///< bilateral strength on plane 0, 0 is off
    float lumaSmoothRange = 4.0f;                     ///< its cell size in pixels
    float chromaSmooth = 0.0f;                        ///< bilateral strength on planes 1 and 2
    float chromaSmoothRange = 4.0f;                   ///< its cell size in pixels
    QxProgress* progress = nullptr;                   ///< not owned

    Denoise3DCT();

    /// Builds the pyramid of a plane, which it overwrites and keeps by reference. Returns 0, or 4
    /// with nothing built when a side is below 256. Raises badChannel for a fifth plane.
    std::int32_t addChannel(GIMG<std::int16_t>& plane);

    /// fastMode: the quick search on layers 0 and 1. noiseGrain: see QxNoiseLevels. newLayerNoise,
    /// newChannelGain: four each, by layer and by plane.
    void setParams(bool fastMode, float noiseGrain, const float* newLayerNoise,
                   const float* newChannelGain, float newBoost, float newLumaSmooth,
                   float newChromaSmooth);

    /// Returns 0 when the planes hold the result, -1 when the host cancelled; their contents are
    /// then undefined. Raises badChannel when no plane was added.
    std::int32_t run();

  private:
    // Each layer gives 0 when done and -1 when the host cancelled; recompose gives 1 when done.
    std::int32_t dnBaseLayer();
    std::int32_t dnLayer2();
    std::int32_t dnLayer1G();
    std::int32_t dnLayer0G();
    std::int32_t recompose();

    // Progress units of the running phase.
    std::int32_t budget() const { return progress != nullptr ? progress->phaseBudget : 0; }
};

} // namespace kt7
