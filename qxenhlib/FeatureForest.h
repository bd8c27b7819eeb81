// Approximate nearest neighbours among the features of one tile.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

namespace kt7 {

/// A forest of randomised trees over features of 16 floats (Silpa-Anan and Hartley 2008, Muja and
/// Lowe 2009), grown anew for each tile in memory that stays. One object serves one thread at a
/// time.
class FeatureForest {
  public:
    /// A search: the candidate whose neighbours are wanted, and the number of its list.
    struct Query {
        std::int32_t candidate;
        std::int32_t list;
    };

    /// For tiles of `candidates` features. Throws std::bad_alloc.
    FeatureForest(std::int32_t candidates, std::int32_t trees);
    ~FeatureForest();
    FeatureForest(const FeatureForest&) = delete;
    FeatureForest& operator=(const FeatureForest&) = delete;

    /// features: 16 floats for each candidate, which stay where they are until drop(). Throws
    /// std::bad_alloc.
    void grow(float* features);

    /// All candidates as the leaves of the last tree list them: neighbours stand together.
    std::span<const std::int32_t> leafOrder() const;

    /// Writes eight distinct candidates, nearest first, and their squared distances for each query,
    /// at 8 times its list's number. checks: candidates that one search may look at, over all trees
    /// together, once its list is full.
    void search(std::span<const Query> queries, const float* features, std::int32_t checks,
                std::int32_t* matches, float* distances) const;

    void drop() noexcept;

  private:
    struct State;
    std::unique_ptr<State> state_;
    std::int32_t trees_;
};

} // namespace kt7
