#include "qxenhlib/ImBMAnn.h"

#include <algorithm>
#include <cstddef>
#include <new>

#include "prim/filter.h"
#include "prim/matching.h"

namespace kt7 {
namespace {

constexpr int featureSize = FeatureSearch::featureSize, groupSize = 8;

} // namespace

ImBMAnn::ImBMAnn(std::int32_t numTrees, std::int32_t checks, float dcScale)
    : numTrees_(numTrees), checks_(checks), dcScale_(dcScale) {}

ImBMAnn::~ImBMAnn() = default;

void ImBMAnn::proc(const GIMG<float>& image, ImBMResult& result) {
    prepare(result);
    computeFeatures(image);
    growForest();
    search(result);
}

void ImBMAnn::prepare(const ImBMResult& result) {
    if (blockSize_ == result.blockSize && step_ == result.step && candX_ == result.candX &&
        candY_ == result.candY)
        return;
    // Without buffers no geometry fits, so a failure below can be tried again.
    candX_ = candY_ = 0;
    means_.reset();
    features_.reset();
    forest_.reset();
    listOf_.assign(static_cast<std::size_t>(result.candX) * static_cast<std::size_t>(result.candY),
                   -1);
    for (std::int32_t y = 0, list = 0; y < result.candY; y += result.step)
        for (std::int32_t x = 0; x < result.candX; x += result.step)
            listOf_[static_cast<std::size_t>(y) * static_cast<std::size_t>(result.candX) +
                    static_cast<std::size_t>(x)] = list++;
    queries_.resize(static_cast<std::size_t>(result.queryX * result.queryY) + 1);
    means_ = std::make_unique<GIMG<float>>(result.width + groupSize, result.height);
    for (std::int32_t y = 0; y < means_->height; ++y)
        std::ranges::fill(means_->row(y), 0.0f);
    features_.reset(primMalloc32f(featureSize * result.candX * result.candY));
    if (!features_)
        throw std::bad_alloc();
    forest_ = makeFeatureSearch(result.candX * result.candY, numTrees_);
    blockSize_ = result.blockSize;
    step_ = result.step;
    candX_ = result.candX;
    candY_ = result.candY;
}

void ImBMAnn::computeFeatures(const GIMG<float>& image) {
    // The last row and column have no neighbour to be averaged with.
    primFilterBox32fC1(image.data, image.stepBytes, means_->data, means_->stepBytes,
                       {image.width - 1, image.height - 1}, {2, 2}, {0, 0});
    for (std::int32_t y = 0; y < image.height; ++y)
        *means_->at(image.width - 1, y) = *image.at(image.width - 1, y);
    std::ranges::copy(image.row(image.height - 1), means_->row(image.height - 1).begin());
    const auto stride = means_->stepBytes / static_cast<std::ptrdiff_t>(sizeof(float));
    for (std::int32_t y = 0; y < candY_; ++y)
        featureRow(means_->at(0, y), stride, dcScale_,
                   features_.get() + std::ptrdiff_t{featureSize} * candX_ * y, candX_);
}

void ImBMAnn::growForest() {
    forest_->grow(features_.get());
}

void ImBMAnn::search(ImBMResult& result) {
    // Where that is the order of a tree's leaves, a query takes nearly the way of the one before,
    // through nodes and features that are still in the cache. Which candidates have a list can't be
    // predicted there, so each is written, over the one before if that has none.
    FeatureSearch::Query* end = queries_.data();
    for (const std::int32_t candidate : forest_->order()) {
        *end = {candidate, listOf_[static_cast<std::size_t>(candidate)]};
        end += end->list >= 0 ? 1 : 0;
    }
    forest_->search({queries_.data(), end}, checks_, result.matchIdx.get(), result.matchDist.get());
}

} // namespace kt7
