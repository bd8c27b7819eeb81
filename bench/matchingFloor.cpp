#include "bench/matchingFloor.h"

#include <algorithm>
#include <ctime>
#include <mutex>

#include "qxenhlib/ImBMAnn.h"
#include "qxenhlib/ImBMResult.h"
#include "qxenhlib/LayerTiles.h"
#include "qxutils/BlockProcPmPnT.h"
#include "qxutils/NoiseNormalize.h"
#include "qxutils/parallel.h"
#include "qxutils/qxbase/rgbYuv.h"

namespace kt7 {

/// The steps of ImBMAnn::proc, of which only growing and searching are timed.
class MatchingSteps {
  public:
    static double time(ImBMAnn& matcher, const GIMG<float>& tile, ImBMResult& record) {
        matcher.prepare(record);
        matcher.computeFeatures(tile);
        const double start = threadSeconds();
        matcher.growForest();
        matcher.search(record);
        matcher.dropForest();
        return threadSeconds() - start;
    }

  private:
    // Processor time, so that what else runs on the machine doesn't count.
    static double threadSeconds() {
        timespec t{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
        return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
    }
};

namespace bench {

using Plane = GIMG<std::int16_t>;

MatchingFloor::MatchingFloor(const std::uint8_t* rgb, std::int32_t width, std::int32_t height,
                             const QxNoiseLevels& noise, bool fastMode) {
    const auto padded = [](std::int32_t side) { return std::max(256, (side + 96) / 16 * 16 + 16); };
    Plane luma(padded(width), padded(height));
    NoiseNormalize curve;
    const float normalised = curve.setup(noise.lumaLow, noise.lumaMid, noise.lumaHigh, 0.95f);
    {
        Plane u(luma.width, luma.height), v(luma.width, luma.height);
        Plane* const planes[3] = {&luma, &u, &v};
        const NoiseNormalize* const tables[3] = {&curve, &curve, &curve};
        qxRGBToYUV(rgb, width * 3, width, height, planes, tables);
    }
    const float level = 2.5f * noise.lumaMid * (normalised / (1e-13f + noise.lumaMid));
    const float layerNoise[] = {level, level, level, level};
    const float channelGain[] = {1.0f, 1.0f, 1.0f, 1.0f};
    denoiser_.setParams(fastMode, noise.noiseGrain, layerNoise, channelGain, 0.0f, 0.0f, 0.0f);
    denoiser_.addChannel(luma);

    // What the layers do to luma, up to the last image that is matched on.
    PyramidLap16s& pyramid = *denoiser_.pyramids[0];
    for (std::int32_t layer = Denoise3DCT::pyramidDepth; layer >= 0; --layer) {
        Plane* detail = pyramid.levels[layer];
        const bool residual = layer == Denoise3DCT::pyramidDepth;
        images_[layer] = std::make_unique<Plane>(detail->width, detail->height);
        if (residual)
            for (std::int32_t y = 0; y < detail->height; ++y)
                std::ranges::copy(detail->row(y), images_[layer]->row(y).begin());
        else
            pyramid.sumTopInto(0, 0, *images_[layer]);
        if (layer == 0)
            break;
        LayerTiles tiles(denoiser_, layer, {&detail, 1},
                         residual ? LayerTiles::MatchOn::level : LayerTiles::MatchOn::guide);
        tiles.run(0, 1);
        tiles.store();
        if (!residual)
            pyramid.foldTop();
    }
    denoiser_.pyramids[0].reset();
}

double MatchingFloor::layerSeconds(std::int32_t layer) const {
    const Plane* const inputs[] = {images_[layer].get()};
    Plane output(inputs[0]->width, inputs[0]->height);
    Plane* const outputs[] = {&output};
    BlockProcPmPnT blocks;
    blocks.setup(1, inputs, 1, outputs, 128, 128, 8, 2);
    std::mutex mutex;
    double seconds = 0.0;
    parallelWorkers(maxThreads(), [&](std::int32_t) {
        ImBMAnn matcher(denoiser_.numTrees[layer], denoiser_.checks[layer], 0.5f);
        ImBMResult record;
        record.setGeometry(blocks.blockWidth, blocks.blockHeight, denoiser_.blockStep[layer]);
        GIMG<float> tile(blocks.blockWidth, blocks.blockHeight);
        double mine = 0.0;
        for (std::int32_t x = 0, y = 0; blocks.getABlockLoc(&x, &y);) {
            blocks.getBlock(x, y, 0, tile);
            mine += MatchingSteps::time(matcher, tile, record);
        }
        const std::scoped_lock lock(mutex);
        seconds += mine;
    });
    return seconds;
}

double MatchingFloor::seconds() const {
    double seconds = 0.0;
    for (std::int32_t layer = 0; layer < Denoise3DCT::layers; ++layer)
        seconds += layerSeconds(layer);
    return seconds / maxThreads();
}

} // namespace bench
} // namespace kt7
