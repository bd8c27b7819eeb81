// Stock FLANN: the search of builds that choose it, and what ours is compared with.
#pragma once

#include <memory>
#include <vector>

#include "qxenhlib/FeatureSearch.h"

namespace kt7 {

/// FLANN's randomised k-d forest through its public interface. It draws from the host's std::rand,
/// asks for memory at every tile and search, and crashes where it is refused.
class FlannForest final : public FeatureSearch {
  public:
    FlannForest(std::int32_t candidates, std::int32_t trees);
    ~FlannForest() override;

    void grow(float* features) override;
    std::span<const std::int32_t> order() const override { return order_; }
    void search(std::span<const Query> queries, std::int32_t checks, std::int32_t* matches,
                float* distances) override;

  private:
    struct Index;

    std::int32_t trees_;
    const float* features_ = nullptr;
    std::vector<std::int32_t> order_; ///< rising, as FLANN doesn't tell its own
    std::unique_ptr<Index> index_;
};

} // namespace kt7
