// Approximate nearest neighbours among the features of one tile, by trees of our own.
#pragma once

#include <memory>
#include <vector>

#include "prim/memory.h"
#include "qxenhlib/FeatureSearch.h"

namespace kt7 {

/// A forest of randomised k-d trees (Silpa-Anan and Hartley 2008): each splits along an element
/// drawn from the five of largest variance. A search goes best bin first, through all trees with
/// one list of branches not taken yet (Muja and Lowe 2009, 2014). Memory stays from tile to tile,
/// and random choices leave the host's generator alone.
class FeatureForest final : public FeatureSearch {
  public:
    FeatureForest(std::int32_t candidates, std::int32_t trees);
    ~FeatureForest() override;

    void grow(float* features) override;
    /// As the leaves of the last tree list them: neighbours stand together.
    std::span<const std::int32_t> order() const override { return order_; }
    void search(std::span<const Query> queries, std::int32_t checks, std::int32_t* matches,
                float* distances) override;

  private:
    struct Node;
    struct Search;
    struct Split {
        std::int32_t element;
        float value;
        std::int32_t firstCount; ///< of candidates for the first child
    };

    const Node* divide(std::int32_t* list, std::int32_t count);
    Split split(std::int32_t* list, std::int32_t count);

    const float* features_ = nullptr;
    PrimPtr<float> nodes_; ///< raw storage, aligned to cache lines
    Node* nextNode_ = nullptr;
    std::vector<const Node*> roots_;
    std::vector<std::int32_t> order_, rest_;
    std::int32_t branchRoom_;
    std::vector<Search> searches_;
};

} // namespace kt7
