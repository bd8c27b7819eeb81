#include "bench/matchingFloor.h"

#include <algorithm>
#include <ctime>
#include <iterator>
#include <mutex>

#include "bench/qxenhlib/MatchingSteps.h"
#include "qxenhlib/ImBMResult.h"
#include "qxutils/BlockProcPmPnT.h"
#include "qxutils/parallel.h"

namespace kt7::bench {
namespace {

using Plane = GIMG<std::int16_t>;

// Processor time, so that what else runs on the machine doesn't count.
double threadSeconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

double layerSeconds(Plane& image, const LayerSearch& search) {
    Plane* const inputs[] = {&image};
    Plane output(image.width, image.height);
    Plane* const outputs[] = {&output};
    BlockProcPmPnT blocks;
    blocks.setup(inputs, outputs, layerTiles);
    std::mutex mutex;
    double seconds = 0.0;
    parallelWorkers(maxThreads(), [&](std::int32_t) {
        ImBMAnn matcher(search.trees, search.checks, ImBMAnn::usualDcScale);
        MatchingSteps steps(matcher);
        ImBMResult record;
        record.setGeometry(blocks.blockWidth, blocks.blockHeight, search.gridStep);
        GIMG<float> tile(blocks.blockWidth, blocks.blockHeight);
        double mine = 0.0;
        for (std::int32_t x = 0, y = 0; blocks.getABlockLoc(&x, &y);) {
            blocks.getBlock(x, y, 0, tile);
            steps.prepare(record);
            steps.computeFeatures(tile);
            const double start = threadSeconds();
            steps.grow();
            steps.search(record);
            mine += threadSeconds() - start;
        }
        const std::scoped_lock lock(mutex);
        seconds += mine;
    });
    return seconds;
}

} // namespace

MatchingFloor::MatchingFloor(const PSImage& image, const QxNoiseLevels& noise, bool fastMode) {
    NormalisedPlanes planes(image.width, image.height, noise);
    planes.fill(image);
    Denoise3DCT denoiser;
    denoiser.setParams(planes.noise(), {fastMode, 0.0f, 0.0f, 0.0f});
    denoiser.addChannel(planes.luma);

    const PyramidLap16s& pyramid = *denoiser.pyramids[0];
    for (const Layer* layer : layers) {
        const Plane& level = *pyramid.levels[layer->level];
        auto image16 = std::make_unique<Plane>(level.width, level.height);
        if (layer->guided)
            pyramid.sumTopInto(0, 0, *image16);
        else
            for (std::int32_t y = 0; y < level.height; ++y)
                std::ranges::copy(level.row(y), image16->row(y).begin());
        searches_.push_back({std::move(image16), denoiser.searchOf(*layer)});
        if (layer != *std::rbegin(layers))
            denoiser.runLayer(*layer);
    }
}

double MatchingFloor::seconds() const {
    double seconds = 0.0;
    for (const auto& [image, search] : searches_)
        seconds += layerSeconds(*image, search);
    return seconds / maxThreads();
}

} // namespace kt7::bench
