#include "qxenhlib/Denoise3DCT.h"

#include <algorithm>
#include <vector>

#include "qxenhlib/LayerTiles.h"
#include "qxenhlib/bilateralPass.h"
#include "qxenhlib/thresholdTables.h"
#include "qxutils/qxbase/QXRC.h"
#include "qxutils/qxbase/progress.h"

namespace kt7 {
namespace {

// Hard thresholds at two and a half deviations let one coefficient of pure noise in eighty through
// and keep detail of the noise's own size.
constexpr float thresholdDeviations = 2.5f;

// What filtered groups get back of the contrast that they have lost: more with what the host asks
// for in sharpening, up to a bound.
constexpr float boostPerSharpening = 0.75f, mostBoost = 0.3f;

// Far below any noise that matters; keeps the quotient defined.
constexpr float noNoise = 1e-6f;

// Shares of the work, coarse to fine: the layers, then recomposition. The luma layers at full and
// half size are most of it.
constexpr std::int32_t layerShares[] = {1, 4, 12, 18};
constexpr std::int32_t recomposeShare = 4, allShares = 39;

} // namespace

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

void Denoise3DCT::setParams(const PlaneNoise& levels, const DenoiseSettings& settings) {
    fastMode_ = settings.fastMode;
    grain_ = levels.grain;
    threshold_ = thresholdDeviations * levels.luma;
    channelGain_[0] = channelGain_[3] = 1.0f;
    channelGain_[1] = levels.chromaU / (levels.luma + noNoise);
    channelGain_[2] = levels.chromaV / (levels.luma + noNoise);
    boost_ = std::min(mostBoost, boostPerSharpening * settings.sharpen);
    lumaSmooth_ = settings.lumaSmooth;
    chromaSmooth_ = settings.chromaSmooth;
    // The stronger, the wider; colour blotches are larger than grains of luma.
    lumaCell_ = std::min(10.0f, 100.0f * lumaSmooth_ + 4.0f);
    chromaCell_ = std::min(24.0f, 200.0f * chromaSmooth_ + 8.0f);
}

std::int32_t Denoise3DCT::run() {
    if (channelCount < 1)
        raise(QxBase::QXRC::badChannel);
    if (qxProgressAdvance(progress, 1) == 0)
        return -1;
    const std::int32_t unit = budget() / allShares;
    const auto beginPhase = [&](std::int32_t share) {
        if (progress != nullptr)
            progress->phaseBudget = unit * share;
    };
    for (std::size_t i = 0; i < std::size(layers); ++i) {
        beginPhase(layerShares[i]);
        if (runLayer(*layers[i]) == -1)
            return -1;
    }
    if (finishLuma() == -1)
        return -1;
    beginPhase(recomposeShare);
    return recompose() == -1 ? -1 : 0;
}

std::int32_t Denoise3DCT::runLayer(const Layer& layer) {
    if (pyramids[0]->levelCount != layer.level + (layer.guided ? 1 : 0))
        raise(QxBase::QXRC::layerNotReady);
    float thresholds[64];
    fillThresholdTable(grain_, layer.level, thresholds);
    LayerJob job{
        searchOf(layer), layer.guided ? pyramids[0].get() : nullptr, thresholds, boost_, {}};
    std::vector<GIMG<std::int16_t>*> planes;
    const std::int32_t count = layer.allPlanes ? channelCount : 1;
    for (std::int32_t c = 0; c < count; ++c) {
        planes.push_back(pyramids[c]->levels[layer.level]);
        job.scales.push_back(channelGain_[c] * threshold_);
    }
    LayerTiles tiles(std::move(job), planes);
    const float step =
        static_cast<float>(budget()) * layer.stepShare / static_cast<float>(tiles.plannedTiles());
    if (!tiles.run(progress, static_cast<std::int32_t>(step), layer.tilesPerStep))
        return -1;
    tiles.store();
    if (layer.guided)
        for (std::int32_t c = 0; c < count; ++c)
            pyramids[c]->foldTop();
    return 0;
}

std::int32_t Denoise3DCT::finishLuma() {
    if (lumaSmooth_ > leastSmoothing)
        bilateralPass(*pyramids[0]->levels[0], lumaSmooth_, lumaCell_);
    // What the finest layer's tiles have left of their budget, and a little more.
    const float rest = static_cast<float>(budget()) * 0.1f;
    return qxProgressAdvance(progress, static_cast<std::int32_t>(rest)) == 0 ? -1 : 0;
}

} // namespace kt7
