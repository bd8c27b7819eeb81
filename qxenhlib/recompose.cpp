// The end of the chroma planes: their fine detail is cleaned with the finished luma as a guide.
#include <algorithm>
#include <memory>

#include "qxenhlib/CDTDWT2dDnCbCr.h"
#include "qxenhlib/Denoise3DCT.h"
#include "qxenhlib/bilateralPass.h"
#include "qxutils/BlockProcPmPnT.h"
#include "qxutils/parallel.h"
#include "qxutils/qxbase/QXRC.h"
#include "qxutils/qxbase/progress.h"

namespace kt7 {
namespace {

constexpr std::int32_t tileSide = 800;
constexpr std::int32_t tileOverlap = 32;
constexpr std::int32_t tileFeather = 12;
constexpr std::int32_t waveletLevels = 4;

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
        GIMG<std::int16_t>* planes[] = {pyramids[0]->levels[0], pyramids[1]->levels[0],
                                        pyramids[2]->levels[0]};
        GIMG<std::int16_t> detailU(planes[0]->width, planes[0]->height);
        GIMG<std::int16_t> detailV(planes[0]->width, planes[0]->height);
        GIMG<std::int16_t>* outputs[] = {&detailU, &detailV};
        BlockProcPmPnT blocks;
        if (blocks.setup(3, planes, 2, outputs, tileSide, tileSide, tileOverlap, tileFeather) == 0)
            raise(QxBase::QXRC::layerNotReady);

        CDTDWT2dDnCbCr wavelet;
        if (wavelet.setup(blocks.blockWidth, blocks.blockHeight, waveletLevels) != 0)
            raise(waveletSetup);
        const float sigmaCb = channelGain[1] * 2.0f * layerNoise[0];
        const float sigmaCr = channelGain[2] * 2.0f * layerNoise[0];
        const float shape = 0.65f * baseFactor;
        const float sigmaY = (4.0f * chromaSmooth + 0.05f) + 0.2f * channelGain[0] * layerNoise[0];
        const auto units = static_cast<float>(budget());
        const auto progressStep = static_cast<std::int32_t>(
            units * 0.94f / static_cast<float>(blocks.blocksX * blocks.blocksY));

        GIMG<float> luma(blocks.blockWidth, blocks.blockHeight);
        GIMG<float> cb(blocks.blockWidth, blocks.blockHeight);
        GIMG<float> cr(blocks.blockWidth, blocks.blockHeight);
        for (std::int32_t x = 0, y = 0; blocks.getABlockLoc(&x, &y);) {
            blocks.getBlock(x, y, 0, luma);
            blocks.getBlock(x, y, 1, cb);
            blocks.getBlock(x, y, 2, cr);
            if (wavelet.denoiseC(luma, cb, cr, sigmaCb, sigmaCr, shape, sigmaY, shape) != 0)
                raise(waveletTile);
            blocks.saveOutBlock(x, y, 0, cb);
            blocks.saveOutBlock(x, y, 1, cr);
            if (qxProgressAdvance(progress, progressStep) == 0)
                return -1;
        }
        parallelRows(planes[0]->height, [&](std::int32_t y) {
            std::ranges::copy(detailU.row(y), planes[1]->row(y).begin());
            std::ranges::copy(detailV.row(y), planes[2]->row(y).begin());
        });
    }
    for (std::int32_t c = 1; c < channelCount; ++c) {
        pyramids[c]->foldTop();
        if (chromaSmooth > 0.0001f)
            bilateralPass(*pyramids[c]->levels[0], chromaSmooth, chromaSmoothRange);
    }
    return 1;
}

} // namespace kt7
