// The denoiser: pyramids of all planes, and the layers that filter them from coarse to fine.
#pragma once

#include <cstdint>
#include <memory>

#include "include/kt7lib/kt7types.h"
#include "qxenhlib/NormalisedPlanes.h"
#include "qxenhlib/PyramidLap16s.h"
#include "qxenhlib/layers.h"
#include "qxutils/qxbase/IMG.h"

namespace kt7 {

/// What a host asks for; strengths are 0 to 1e6, see qxDenoiseKt7.
struct DenoiseSettings {
    bool fastMode;      ///< the quick search in the two finest layers
    float sharpen;      ///< raises the contrast given back to filtered groups
    float lumaSmooth;   ///< bilateral strength on plane 0
    float chromaSmooth; ///< bilateral strength on planes 1 and 2
};

/// Denoises three planes (0 luma, 1 and 2 chroma) in place. Each layer matches 8x8 blocks and
/// hard-thresholds groups of eight in a three-dimensional DCT (after Dabov, Foi, Katkovnik and
/// Egiazarian 2007), on one level of a Laplacian pyramid; the finest chroma detail is cleaned by a
/// complex wavelet instead.
///
/// Order of use: construct, set `progress`, setParams, addChannel for planes 0, 1, 2, run once.
class Denoise3DCT {
  public:
    static constexpr std::int32_t mostChannels = 4;
    static constexpr std::int32_t smallestSide = 256;

    std::int32_t channelCount = 0; ///< planes added so far
    std::unique_ptr<PyramidLap16s> pyramids[mostChannels];
    QxProgress* progress = nullptr; ///< not owned

    /// Builds the pyramid of a plane, which it overwrites and keeps by reference. Returns 0, or 4
    /// with nothing built when a side is below 256. Raises badChannel for a fifth plane.
    std::int32_t addChannel(GIMG<std::int16_t>& plane);

    void setParams(const PlaneNoise& levels, const DenoiseSettings& settings);

    /// Returns 0 when the planes hold the result, -1 when the host cancelled; their contents are
    /// then undefined. Raises badChannel when no plane was added.
    std::int32_t run();

    /// How thoroughly a layer looks for similar blocks.
    const LayerSearch& searchOf(const Layer& layer) const {
        return fastMode_ ? layer.fast : layer.full;
    }

    /// Filters a layer and folds it. A coarser one must have gone before. Returns 0, or -1 when the
    /// host cancelled; the layer is then untouched. Raises layerNotReady.
    std::int32_t runLayer(const Layer& layer);

  private:
    static constexpr float leastSmoothing = 0.0001f; // weaker smoothing would not show

    // 0 when done and -1 when the host cancelled; recompose gives 1 when done.
    std::int32_t finishLuma();
    std::int32_t recompose();

    // Progress units of the running phase.
    std::int32_t budget() const { return progress != nullptr ? progress->phaseBudget : 0; }

    bool fastMode_ = false;
    float grain_ = 0.0f;
    float threshold_ = 0.0f;               // in plane 0, where 1.0 is 32768 steps
    float channelGain_[mostChannels] = {}; // noise of a plane relative to plane 0
    float boost_ = 0.0f;                   // contrast given back to filtered groups
    float lumaSmooth_ = 0.0f, chromaSmooth_ = 0.0f;
    float lumaCell_ = 0.0f, chromaCell_ = 0.0f; // cell sizes of the smoothing in pixels
};

} // namespace kt7
