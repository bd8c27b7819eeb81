// Collaborative filter of matched block groups by hard thresholding in a cosine domain.
#pragma once

#include <cstdint>
#include <memory>

#include "prim/memory.h"
#include "qxenhlib/ImBMResult.h"
#include "qxutils/qxbase/IMG.h"

namespace kt7 {

/// Stacks each query's eight matches to a cube, drops the weak coefficients of its transform, and
/// blends the filtered blocks into the plane, the sparser groups with more weight (Dabov et al.
/// 2007). One object serves one thread at a time.
class ImBMFilter {
  public:
    /// Takes over a geometry. thresholds: 64 floats in sample units at scale 1, entry 8 v + u for
    /// the frequencies v down and u across, the same for all frequencies along the group. boost:
    /// strength of the gain that makes up for dropped coefficients, off up to 0.05. Returns 1, or 0
    /// when the record's blocks or groups are not of 8. All memory is made here. Raises
    /// noFilterStorage, noBufferStorage.
    std::int32_t init(const ImBMResult& result, const float* thresholds, float boost);

    /// Filters a plane in place with the lists of `result`, which has the geometry given to init.
    /// Pixels that no block covers keep their value. Returns 0, or 4 with the plane untouched when
    /// its size is another.
    std::int32_t filterImage(GIMG<float>& image, const ImBMResult& result, float thresholdScale);

  private:
    std::int32_t width_ = 0, height_ = 0;
    std::int32_t candX_ = 0, candY_ = 0;
    PrimPtr<float> thresholds_;
    PrimPtr<float> scaledThresholds_;
    PrimPtr<float> cube_;
    PrimPtr<float> scratch_;               ///< of one row of weights
    std::unique_ptr<GIMG<float>> sums_;    ///< weighted blocks
    std::unique_ptr<GIMG<float>> weights_; ///< of candidates, with room for blocks on all sides
    float boost_ = 0.0f;
};

} // namespace kt7
