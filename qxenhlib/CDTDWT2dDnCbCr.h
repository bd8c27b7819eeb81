// Chroma denoiser in the wavelet domain, steered by luma.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "qxenhlib/CDTDWT2d.h"
#include "qxenhlib/ChromaLevelPass.h"
#include "qxutils/qxbase/IMG.h"

namespace kt7 {

/// Attenuates the complex wavelet coefficients of two chroma tiles that do not rise above the
/// noise, by the magnitude of the luma coefficient at the same place on the finest level, by the
/// plane's own on coarse ones, by the larger of both in between. Phases stay, and so does the
/// coarsest low-pass band, so large-scale colour passes unchanged.
class CDTDWT2dDnCbCr {
  public:
    /// Results beside 0.
    enum Result : std::int32_t { wrongTile = 4, noTransform = 9 };

    /// Makes ready for tiles of width x height and 0 to 7 levels, and for as many threads as may
    /// run now. All memory is made here, about six floats per pixel of a tile. Returns 0, or
    /// noTransform; raises badWaveletLevels, noBufferStorage. After a failure the size is 0.
    std::int32_t setup(std::int32_t tileWidth, std::int32_t tileHeight, std::int32_t levelCount);

    /// Denoises cb and cr in place; luma is only read. All three have the size that was set up.
    /// sigma: noise levels on the planes' own scale; shape: see noiseShape. Returns 0, or wrongTile
    /// with nothing changed.
    std::int32_t denoiseC(const GIMG<float>& luma, GIMG<float>& cb, GIMG<float>& cr, float sigmaCb,
                          float sigmaCr, float chromaShape, float sigmaY, float lumaShape);

    std::int32_t width = 0, height = 0;
    std::int32_t levels = 0;
    std::unique_ptr<CDTDWT2d> lumaTransform, cbTransform, crTransform;
    float chromaRamp = 2.5f; ///< width of the gain's ramp above the threshold, in thresholds
    float lumaRamp = 2.5f;
    /// Upper limits of the gain; above 1 strong coefficients are amplified.
    float gainCap[8] = {1.3f, 1.1f, 1.05f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f};
    bool useLumaGain[8] = {true, true};
    bool useChromaGain[8] = {false, true, true, true, true, true, true, true};

  private:
    LevelGains gainsOf(std::int32_t level, const float sigma[3], const float* lumaCurve,
                       const float* chromaCurve) const;
    void restoreLevel(std::int32_t level, GIMG<float>& cb, GIMG<float>& cr);

    std::vector<LevelWorker> workers_;
};

} // namespace kt7
