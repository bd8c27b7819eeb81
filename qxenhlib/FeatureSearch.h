// The nearest neighbours among the features of one tile, whatever finds them.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

namespace kt7 {

/// An approximate search for the nearest of many features, which is made anew for each tile. One
/// object serves one thread at a time.
class FeatureSearch {
  public:
    static constexpr int featureSize = 16; ///< floats of a feature
    static constexpr int listSize = 8;     ///< neighbours of a list

    /// The candidate whose neighbours are wanted, and the number of its list.
    struct Query {
        std::int32_t candidate;
        std::int32_t list;
    };

    FeatureSearch() = default;
    virtual ~FeatureSearch() = default;
    FeatureSearch(const FeatureSearch&) = delete;
    FeatureSearch& operator=(const FeatureSearch&) = delete;

    /// features: featureSize floats for each candidate, which stay where they are for as long as
    /// search() is called. Throws std::bad_alloc.
    virtual void grow(float* features) = 0;

    /// All candidates, in an order in which they are searched fast.
    virtual std::span<const std::int32_t> order() const = 0;

    /// Writes listSize distinct candidates, nearest first, and their squared distances for each
    /// query, at listSize times its list's number. checks: candidates that one search may look at,
    /// over all trees together, once its list is full.
    virtual void search(std::span<const Query> queries, std::int32_t checks, std::int32_t* matches,
                        float* distances) = 0;
};

/// The search that this build was made with, for tiles of `candidates` features, listSize at the
/// least. Throws std::bad_alloc.
std::unique_ptr<FeatureSearch> makeFeatureSearch(std::int32_t candidates, std::int32_t trees);

} // namespace kt7
