// The end of the chroma planes: their fine detail is cleaned with the finished luma as a guide.
#include <algorithm>

#include "prim/copy.h"
#include "qxenhlib/CDTDWT2dDnCbCr.h"
#include "qxenhlib/Denoise3DCT.h"
#include "qxenhlib/bilateralPass.h"
#include "qxutils/TileRunner.h"
#include "qxutils/parallel.h"
#include "qxutils/qxbase/QXRC.h"
#include "qxutils/qxbase/progress.h"

namespace kt7 {
namespace {

// Large, as each tile is transformed whole and padded. The ten taps of the finest level, where the
// noise is, reach no further in than what is thrown away; the eight pixels behind it fade.
constexpr TileShape chromaTiles{800, 32, 12};
constexpr std::int32_t waveletLevels = 4;

// The fine chroma levels were not matched and get twice the layers' threshold.
constexpr float chromaThresholds = 2.0f;

// See noiseShape: white, in detail that no filter has touched.
constexpr float detailShape = 0.65f * 0.2f;

// Luma has been denoised. What is left of it, beside what counts as structure in any photo.
constexpr float leastLumaDetail = 0.05f, lumaRest = 0.2f, lumaPerSmoothing = 4.0f;

struct Worker {
    explicit Worker(const BlockProcPmPnT& tiles) : luma(tiles.blockWidth, tiles.blockHeight) {
        if (wavelet.setup(tiles.blockWidth, tiles.blockHeight, waveletLevels) != 0)
            raise(waveletSetup);
    }

    CDTDWT2dDnCbCr wavelet;
    GIMG<float> luma;
};

} // namespace

std::int32_t Denoise3DCT::recompose() {
    if (channelCount < 3)
        return 0;
    // The two noisy Laplacians become one full-size detail image; the filtered low-pass image waits
    // at half size.
    for (std::int32_t c = 1; c < channelCount; ++c) {
        pyramids[c]->foldLevel(1);
        pyramids[c]->foldTop();
    }
    {
        GIMG<std::int16_t>* const planes[] = {pyramids[0]->levels[0], pyramids[1]->levels[0],
                                              pyramids[2]->levels[0]};
        GIMG<std::int16_t> detailU(planes[0]->width, planes[0]->height);
        GIMG<std::int16_t> detailV(planes[0]->width, planes[0]->height);
        GIMG<std::int16_t>* const outputs[] = {&detailU, &detailV};
        BlockProcPmPnT tiles;
        if (!tiles.setup(planes, outputs, chromaTiles))
            raise(QxBase::QXRC::layerNotReady);

        const float sigmaCb = channelGain_[1] * chromaThresholds * threshold_;
        const float sigmaCr = channelGain_[2] * chromaThresholds * threshold_;
        const float sigmaY = (lumaPerSmoothing * chromaSmooth_ + leastLumaDetail) +
                             lumaRest * channelGain_[0] * threshold_;
        // The folding and smoothing below have the rest.
        const auto step =
            static_cast<std::int32_t>(static_cast<float>(budget()) * 0.94f /
                                      static_cast<float>(tiles.blocksX * tiles.blocksY));
        std::int32_t reported = 0;
        // One tile after the other: the wavelet spreads each over all threads.
        const bool completed = runTiles(
            tiles, 1, [&](std::int32_t) { return Worker(tiles); },
            [&](Worker& worker, TileSlot& slot) {
                GIMG<float>&cb = *slot.planes[0], &cr = *slot.planes[1];
                tiles.getBlock(slot.x, slot.y, 0, worker.luma);
                tiles.getBlock(slot.x, slot.y, 1, cb);
                tiles.getBlock(slot.x, slot.y, 2, cr);
                if (worker.wavelet.denoiseC(worker.luma, cb, cr, sigmaCb, sigmaCr, detailShape,
                                            sigmaY, detailShape) != 0)
                    raise(waveletTile);
            },
            [&](std::int32_t merged) {
                for (; reported < merged; ++reported)
                    if (qxProgressAdvance(progress, step) == 0)
                        return false;
                return true;
            });
        if (!completed)
            return -1;
        for (std::int32_t c = 1; c < 3; ++c) {
            const GIMG<std::int16_t>& detail = *outputs[c - 1];
            parallelRows(detail.height, [&](std::int32_t y) {
                primCopy16sC1(detail.at(0, y), detail.stepBytes, planes[c]->at(0, y),
                              planes[c]->stepBytes, {detail.width, 1});
            });
        }
    }
    for (std::int32_t c = 1; c < channelCount; ++c) {
        pyramids[c]->foldTop();
        if (chromaSmooth_ > leastSmoothing)
            bilateralPass(*pyramids[c]->levels[0], chromaSmooth_, chromaCell_);
    }
    return 1;
}

} // namespace kt7
