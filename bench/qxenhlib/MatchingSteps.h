// Opens the steps of ImBMAnn::proc to benchmarks: growing and searching are what the index itself
// costs, the floor under any denoise call.
#pragma once

#include <memory>
#include <utility>

#include "qxenhlib/ImBMAnn.h"

namespace kt7 {

class MatchingSteps {
  public:
    explicit MatchingSteps(ImBMAnn& matcher) : matcher_(matcher) {}

    void prepare(const ImBMResult& result) { matcher_.prepare(result); }
    void computeFeatures(const GIMG<float>& tile) { matcher_.computeFeatures(tile); }
    void grow() { matcher_.growForest(); }
    void search(ImBMResult& result) { matcher_.search(result); }

    /// What prepare() made gives way to another search for the same tiles.
    void searchWith(std::unique_ptr<FeatureSearch> other) { matcher_.forest_ = std::move(other); }

  private:
    ImBMAnn& matcher_;
};

} // namespace kt7
