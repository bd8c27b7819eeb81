#include "qxenhlib/LRDeconv.h"

#include <cmath>

#include "qxutils/qxbase/borders.h"

namespace kt7 {
namespace {

// Sides that hold the kernel's mass to about 2.5 deviations.
std::int32_t sideFor(double sigma) {
    return sigma < 0.6 ? 3 : sigma < 0.9 ? 5 : sigma < 1.4 ? 7 : 9;
}

std::int32_t marginFor(float sigma) {
    return sigma < 0.65f ? 4 : sigma < 1.0f ? 5 : sigma < 1.5f ? 6 : 8;
}

} // namespace

void LRDeconv::init(float newSigma, std::int32_t newIterations, float newThreshold) {
    constexpr std::int32_t largestSide = 9;
    const std::int32_t side = sideFor(static_cast<double>(newSigma));
    float weight[largestSide];
    for (std::int32_t i = 0; i < side; ++i) {
        const auto distance = static_cast<float>(i - (side - 1) / 2);
        weight[i] = std::exp(-(distance * distance) / (2.0f * newSigma * newSigma));
    }
    state.reset();
    kernel.reset(primMalloc32f(side * side));
    if (!kernel)
        raise(noKernelStorage);
    float sum = 0.0f;
    for (std::int32_t i = 0; i < side * side; ++i) {
        kernel[i] = weight[i / side] * weight[i % side];
        sum += kernel[i];
    }
    for (std::int32_t i = 0; i < side * side; ++i)
        kernel[i] /= sum;
    kernelSize = side;
    iterations = newIterations;
    sigma = newSigma;
    if (newThreshold >= 0.0f)
        threshold = newThreshold;
}

void LRDeconv::apply(const GIMG<float>& in, GIMG<float>& out) {
    if (!state || stateSize_.width != in.width || stateSize_.height != in.height) {
        PrimDeconvLR32f* made = nullptr;
        primDeconvLRInitAlloc32fC1(&made, kernel.get(), kernelSize,
                                   {in.width + kernelSize - 1, in.height + kernelSize - 1},
                                   threshold);
        if (made == nullptr)
            raise(noBufferStorage);
        state.reset(made);
        stateSize_ = in.roi();
    }
    primDeconvLR32fC1(in.data, in.stepBytes, out.data, out.stepBytes, in.roi(), iterations,
                      state.get());
    const std::int32_t margin = marginFor(sigma);
    copyFrame(in, out, margin, margin, margin, margin);
}

} // namespace kt7
