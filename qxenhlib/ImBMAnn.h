// Block matcher: for each query block of a tile the eight most similar blocks anywhere in it.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "prim/memory.h"
#include "qxenhlib/FeatureSearch.h"
#include "qxenhlib/ImBMResult.h"
#include "qxutils/qxbase/IMG.h"

namespace kt7 {

/// Compares blocks by 16 cosine coefficients of their half-resolution samples, and searches the
/// nearest ones approximately in a forest of randomised trees, grown anew for each tile. Memory
/// stays from tile to tile. One object serves one thread at a time.
class ImBMAnn {
  public:
    /// Brightness counts a quarter of its share in the squared distance of two blocks: structure
    /// tells more about what may be averaged.
    static constexpr float usualDcScale = 0.5f;

    /// checks: candidates that one search may look at, over all trees together; not negative.
    /// dcScale: factor on a block's mean; at 0.5 brightness weighs a quarter in squared distances.
    ImBMAnn(std::int32_t numTrees, std::int32_t checks, float dcScale);
    ~ImBMAnn();
    ImBMAnn(const ImBMAnn&) = delete;
    ImBMAnn& operator=(const ImBMAnn&) = delete;

    /// Fills the lists of `result`, whose geometry is that of `image`, with distinct candidates,
    /// best first. The tile holds at least numMatches candidates. Raises noBufferStorage and
    /// std::bad_alloc.
    void proc(const GIMG<float>& image, ImBMResult& result);

  private:
    friend class MatchingSteps; ///< benchmarks time the steps one by one

    void prepare(const ImBMResult& result);
    void computeFeatures(const GIMG<float>& image);
    void growForest();
    void search(ImBMResult& result);

    std::int32_t numTrees_;
    std::int32_t checks_;
    std::int32_t candX_ = 0, candY_ = 0;
    std::int32_t blockSize_ = 0, step_ = 0;
    float dcScale_;
    std::unique_ptr<GIMG<float>> means_; ///< 2x2 means, with spare columns on the right
    PrimPtr<float> features_;            ///< 16 per candidate
    std::vector<std::int32_t> listOf_;   ///< of a candidate; -1 where it is no query
    std::unique_ptr<FeatureSearch> forest_;
    std::vector<FeatureSearch::Query> queries_; ///< room for all, and one to be written in vain
};

} // namespace kt7
