#include "qxenhlib/ImBMFilter.h"

#include <algorithm>
#include <cstddef>

#include "prim/kernels/KernelTable.h"

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
    if (!thresholds_ || !scaledThresholds_ || !cube_)
        raise(noFilterStorage);
    std::copy_n(thresholds, blockPixels, thresholds_.get());
    return 1;
}

std::int32_t ImBMFilter::filterImage(GIMG<float>& image, const ImBMResult& result,
                                     float thresholdScale) {
    if (image.width != width_ || image.height != height_)
        return 4;
    for (std::int32_t i = 0; i < blockPixels; ++i)
        scaledThresholds_[static_cast<std::size_t>(i)] =
            thresholds_[static_cast<std::size_t>(i)] * thresholdScale;

    // Blocks are read from the image and added up beside it. All pixels of a block get the same
    // weight, so that is added to the block's candidate alone and spread over the pixels
    // afterwards: half the memory traffic of adding it to each pixel.
    GIMG<float> sums(width_, height_);
    GIMG<float> weights(candX_ + 2 * reach, candY_ + 2 * reach);
    const PrimPtr<float> scratch(primMalloc32f(weights.width));
    if (!scratch)
        raise(noBufferStorage);
    for (std::int32_t y = 0; y < sums.height; ++y)
        std::ranges::fill(sums.row(y), 0.0f);
    for (std::int32_t y = 0; y < weights.height; ++y)
        std::ranges::fill(weights.row(y), 0.0f);

    groupKernels->filterGroups({.source = image.data,
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
        groupKernels->normaliseRow(weights.at(0, y), strideOf(weights), sums.at(0, y), weightFloor,
                                   scratch.get(), image.at(0, y), width_);
    return 0;
}

} // namespace kt7
