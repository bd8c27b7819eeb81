#include "bench/matchingFloor.h"

#include <algorithm>
#include <ctime>
#include <memory>
#include <mutex>
#include <vector>

#include "qxenhlib/Denoise3DCT.h"
#include "qxenhlib/ImBMAnn.h"
#include "qxenhlib/ImBMResult.h"
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
namespace {

using Plane = GIMG<std::int16_t>;

// Busy seconds of the whole team.
double layerFloor(const Denoise3DCT& denoiser, std::int32_t layer, const Plane& matchImage) {
    Plane output(matchImage.width, matchImage.height);
    const Plane* inputs[] = {&matchImage};
    Plane* outputs[] = {&output};
    BlockProcPmPnT blocks;
    blocks.setup(1, inputs, 1, outputs, 128, 128, 8, 2);
    std::mutex mutex;
    double seconds = 0.0;
    parallelWorkers(maxThreads(), [&](std::int32_t) {
        ImBMAnn matcher(denoiser.numTrees[layer], denoiser.checks[layer], 0.5f);
        ImBMResult record;
        record.setGeometry(blocks.blockWidth, blocks.blockHeight, denoiser.blockStep[layer]);
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

} // namespace

double matchingFloor(const std::uint8_t* rgb, std::int32_t width, std::int32_t height,
                     const QxNoiseLevels& noise, bool fastMode) {
    const auto padded = [](std::int32_t side) { return std::max(256, (side + 96) / 16 * 16 + 16); };
    Plane luma(padded(width), padded(height));
    {
        Plane u(luma.width, luma.height), v(luma.width, luma.height);
        Plane* const planes[3] = {&luma, &u, &v};
        NoiseNormalize curve;
        curve.setup(noise.lumaLow, noise.lumaMid, noise.lumaHigh, 0.95f);
        const NoiseNormalize* const tables[3] = {&curve, &curve, &curve};
        qxRGBToYUV(rgb, width * 3, width, height, planes, tables);
    }
    Denoise3DCT denoiser;
    const float unused[4] = {};
    denoiser.setParams(fastMode, noise.noiseGrain, unused, unused, 0.0f, 0.0f, 0.0f);
    denoiser.addChannel(luma);
    PyramidLap16s& pyramid = *denoiser.pyramids[0];
    double seconds = layerFloor(denoiser, 3, *pyramid.levels[3]);
    // Unfiltered, folding a level gives the very image that the next layer matches on, but for the
    // noise that the layers below have taken out of it.
    while (pyramid.levelCount > 0) {
        pyramid.foldTop();
        seconds += layerFloor(denoiser, pyramid.levelCount, *pyramid.levels[pyramid.levelCount]);
    }
    return seconds / maxThreads();
}

} // namespace bench
} // namespace kt7
