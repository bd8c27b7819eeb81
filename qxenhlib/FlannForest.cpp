#include "qxenhlib/FlannForest.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <numeric>

#include <flann/util/params.h>

#include <flann/algorithms/dist.h>
#include <flann/algorithms/kdtree_index.h>
#include <flann/util/result_set.h>

namespace kt7 {

struct FlannForest::Index : flann::KDTreeIndex<flann::L2<float>> {
    using KDTreeIndex::KDTreeIndex;
};

// FLANN drops branches when there are as many as candidates. With a list's worth of candidates for
// each tree, one tree has enough branches left to fill a list; so has a single tree at all times.
FlannForest::FlannForest(std::int32_t candidates, std::int32_t trees)
    : trees_(candidates < listSize * trees ? 1 : trees),
      order_(static_cast<std::size_t>(candidates)) {
    std::iota(order_.begin(), order_.end(), 0);
}

FlannForest::~FlannForest() = default;

void FlannForest::grow(float* features) {
    features_ = features;
    index_.reset(); // before the next is made, so that memory holds one
    index_ = std::make_unique<Index>(flann::Matrix<float>(features, order_.size(), featureSize),
                                     flann::KDTreeIndexParams(trees_));
    index_->buildIndex();
}

void FlannForest::search(std::span<const Query> queries, std::int32_t checks, std::int32_t* matches,
                         float* distances) {
    flann::KNNResultSet<float> best(listSize);
    std::array<std::size_t, listSize> found{};
    const flann::SearchParams params(checks);
    for (const Query& query : queries) {
        best.clear();
        index_->findNeighbors(best, features_ + std::ptrdiff_t{featureSize} * query.candidate,
                              params);
        const std::ptrdiff_t first = std::ptrdiff_t{listSize} * query.list;
        best.copy(found.data(), distances + first, listSize);
        std::ranges::transform(found, matches + first,
                               [](std::size_t i) { return static_cast<std::int32_t>(i); });
    }
}

} // namespace kt7
