#include "qxenhlib/ImBMFilter.h"

#include <cstddef>

#include "prim/arith.h"
#include "prim/copy.h"
#include "prim/groupFilter.h"
#include "prim/set.h"

namespace kt7 {
namespace {

// Pixels of a block beyond its corner.
constexpr std::int32_t reach = 7;
constexpr std::int32_t side = 8, blockPixels = side * side, cubeSize = side * blockPixels;
// Weight that a pixel's own noisy value has: it only shows where no block came.
constexpr float weightFloor = 1e-7f;
constexpr float gainCap = 1.25f;

std::ptrdiff_t strideOf(const GIMG<float>& plane) {
    return plane.stepBytes / static_cast<std::ptrdiff_t>(sizeof(float));
}

} // namespace

std::int32_t ImBMFilter::init(const ImBMResult& result, const float* thresholds, float boost) {
    thresholds_.reset();
    scaledThresholds_.reset();
    cube_.reset();
    scratch_.reset();
    width_ = result.width;
    height_ = result.height;
    boost_ = boost;
    if (result.blockSize != side || result.numMatches != side)
        return 0;
    candX_ = width_ - side + 1;
    candY_ = height_ - side + 1;
    thresholds_.reset(primMalloc32f(blockPixels));
    scaledThresholds_.reset(primMalloc32f(blockPixels));
    cube_.reset(primMalloc32f(cubeSize));
    scratch_.reset(primMalloc32f(candX_ + 2 * reach));
    if (!thresholds_ || !scaledThresholds_ || !cube_ || !scratch_)
        raise(noFilterStorage);
    primCopy32f(thresholds, thresholds_.get(), blockPixels);
    sums_ = std::make_unique<GIMG<float>>(width_, height_);
    weights_ = std::make_unique<GIMG<float>>(candX_ + 2 * reach, candY_ + 2 * reach);
    return 1;
}

std::int32_t ImBMFilter::filterImage(GIMG<float>& image, const ImBMResult& result,
                                     float thresholdScale) {
    if (image.width != width_ || image.height != height_)
        return 4;
    primCopy32f(thresholds_.get(), scaledThresholds_.get(), blockPixels);
    primMulC32fI(thresholdScale, scaledThresholds_.get(), blockPixels);

    // Blocks are read from the image and added up beside it. All pixels of a block get the same
    // weight, so that is added to the block's candidate alone and spread over the pixels
    // afterwards: half the memory traffic of adding it to each pixel.
    GIMG<float>&sums = *sums_, &weights = *weights_;
    primSet32fC1(0.0f, sums.data, sums.stepBytes, sums.roi());
    primSet32fC1(0.0f, weights.data, weights.stepBytes, weights.roi());

    filterGroups({.source = image.data,
                  .sourceStride = strideOf(image),
                  .sums = sums.data,
                  .sumsStride = strideOf(sums),
                  .weights = weights.at(reach, reach),
                  .weightsStride = strideOf(weights),
                  .matchIdx = result.matchIdx.get(),
                  .groups = result.queryX * result.queryY,
                  .candX = candX_,
                  .thresholds = scaledThresholds_.get(),
                  .boost = boost_,
                  .gainCap = gainCap,
                  .cube = cube_.get()});

    for (std::int32_t y = 0; y < height_; ++y)
        normaliseRow(weights.at(0, y), strideOf(weights), sums.at(0, y), weightFloor,
                     scratch_.get(), image.at(0, y), width_);
    return 0;
}

} // namespace kt7
