#include "qxenhlib/Denoise3DCT.h"

#include <algorithm>

#include "qxenhlib/thresholdTables.h"
#include "qxutils/qxbase/QXRC.h"
#include "qxutils/qxbase/progress.h"

namespace kt7 {

Denoise3DCT::Denoise3DCT() {
    for (auto& table : thresholdTables)
        table = std::make_unique<float[]>(64);
}

std::int32_t Denoise3DCT::addChannel(GIMG<std::int16_t>& plane) {
    if (++channelCount > mostChannels)
        raise(QxBase::QXRC::badChannel);
    auto& pyramid = pyramids[channelCount - 1];
    if (pyramid)
        raise(QxBase::QXRC::badChannel);
    if (plane.width < smallestSide || plane.height < smallestSide)
        return 4;
    pyramid = std::make_unique<PyramidLap16s>(plane, pyramidDepth);
    return 0;
}

void Denoise3DCT::setParams(bool fastMode, float noiseGrain, const float* newLayerNoise,
                            const float* newChannelGain, float newBoost, float newLumaSmooth,
                            float newChromaSmooth) {
    lumaSmooth = newLumaSmooth;
    chromaSmooth = newChromaSmooth;
    boost = newBoost;
    std::copy_n(newLayerNoise, layers, layerNoise);
    std::copy_n(newChannelGain, mostChannels, channelGain);
    lumaSmoothRange = std::min(10.0f, 100.0f * lumaSmooth + 4.0f);
    chromaSmoothRange = std::min(24.0f, 200.0f * chromaSmooth + 8.0f);
    numTrees[0] = fastMode ? 1 : 2;
    numTrees[1] = fastMode ? 2 : 4;
    checks[0] = fastMode ? 16 : 24;
    checks[1] = fastMode ? 24 : 32;
    blockStep[0] = blockStep[1] = fastMode ? 3 : 2;
    for (std::int32_t level = 0; level < layers; ++level)
        fillThresholdTable(noiseGrain, level, thresholdTables[level].get());
}

std::int32_t Denoise3DCT::run() {
    if (channelCount < 1)
        raise(QxBase::QXRC::badChannel);
    if (qxProgressAdvance(progress, 1) == 0)
        return -1;

    // Shares of the work, coarse to fine; the luma layers at full and half size are most of it.
    struct Phase {
        std::int32_t (Denoise3DCT::*layer)();
        std::int32_t share;
    };
    constexpr Phase phases[] = {{&Denoise3DCT::dnBaseLayer, 1},
                                {&Denoise3DCT::dnLayer2, 4},
                                {&Denoise3DCT::dnLayer1G, 12},
                                {&Denoise3DCT::dnLayer0G, 18},
                                {&Denoise3DCT::recompose, 4}};
    constexpr std::int32_t shares = 39;
    const std::int32_t unit = budget() / shares;
    for (const Phase& phase : phases) {
        if (progress != nullptr)
            progress->phaseBudget = unit * phase.share;
        if ((this->*phase.layer)() == -1)
            return -1;
    }
    return 0;
}

} // namespace kt7
