#include "photo/measure.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <utility>

#include "photo/blockStatistics.h"
#include "photo/checks.h"
#include "photo/mosaic.h"
#include "photo/strengthRule.h"
#include "photo/textureGuard.h"

namespace kt7::photo {
namespace {

constexpr const char* featureNames[] = {
    "fine over middle power of what a first pilot took",
    "middle power of that",
    "fine power of colour",
    "middle power of colour",
    "fine power of luma",
    "middle power of luma",
    "coarse power of colour over that of luma",
    "evenness of middle power",
    "variance of colour if white",
    "variance of luma if white",
    "deviation of luma in calm windows",
    "fineness there",
    "as strong in colour as in luma",
    "noise for certain in colour",
};
static_assert(std::size(featureNames) <= kt7PhotoMostFeatures);

Planes planesOf(const EngineImage& image, std::int32_t colours) {
    Planes planes(image.width, image.height, colours);
    for (std::int32_t y = 0; y < image.height; ++y) {
        const std::uint16_t* rgb = image.row(y);
        planes.setRow(y, rgb, rgb + 1, rgb + 2, 3, EngineImage::top);
    }
    return planes;
}

EngineImage copyOf(const EngineImage& image) {
    EngineImage copy(image.width, image.height);
    std::copy_n(image.row(0), image.row(image.height) - image.row(0), copy.row(0));
    return copy;
}

} // namespace

const char* featureName(std::int32_t feature) noexcept {
    const auto index = static_cast<std::size_t>(feature);
    return index < std::size(featureNames) ? featureNames[index] : nullptr;
}

Measurement measured(const EngineImage& image, std::int32_t colours, Progress& progress) {
    Measurement measurement{};
    Kt7PhotoNoise& noise = measurement.noise;
    noise.size = sizeof noise;
    progress.report(0.0);
    const Mosaic mosaic = mosaicOf(image);
    const bool large = std::min(image.width, image.height) >= 148;
    noise.estimate = estimatedLevels(large ? image : mosaic.image);
    const NoiseFloor floor = noiseFloorOf(large ? image : mosaic.image);
    const QxNoiseLevels first = guardedLevels(noise.estimate, floor);

    const double begin = progress.from(), end = progress.to();
    const auto pilotWith = [&](const QxNoiseLevels& levels, const Looks& looks, int part) {
        EngineImage pilot = copyOf(mosaic.image);
        progress.enterPart(std::lerp(begin, end, 0.5 * part),
                           std::lerp(begin, end, 0.5 * part + 0.5));
        denoise(pilot, levels, looks, false, progress);
        return pilot;
    };
    std::vector<BlockPlace> blocks = blocksWithin(mosaic.blocks, mosaic.image, 2.5f, 252.5f);
    if (blocks.size() < rule::fewBlocks)
        blocks = mosaic.blocks;
    // Planes are made anew for each pilot: while the denoiser runs, its own memory counts.
    const Features features = [&] {
        const EngineImage pilot = pilotWith(first, {}, 0);
        return featuresOf(planesOf(mosaic.image, colours), planesOf(pilot, colours), pilot, blocks,
                          mosaic.blocks);
    }();
    const NoiseKind kind = kindOf(features);
    noise.levels = levelsFor(first, features, kind);
    noise.chromaSmooth = chromaSmoothFor(kind);
    noise.white = kind.white;
    noise.emptied = kind.emptied;
    noise.noiseLike = kind.lumaNoise;
    for (const float value :
         {features.fineOverMiddle, features.takenMiddle, features.fineColour, features.middleColour,
          features.fineLuma, features.middleLuma, features.coarseColour, features.evenness,
          features.whiteColour, features.whiteLuma, 255.0f * floor.level, floor.fineness, kind.open,
          kind.colourNoise})
        noise.features[noise.featureCount++] = value;
    EngineImage pilot = pilotWith(noise.levels, {.chromaSmooth = noise.chromaSmooth}, 1);
    setSpectrum(noise, planesOf(mosaic.image, colours), planesOf(pilot, colours), blocks, kind,
                whitePower(features, kind));
    const StageStrength strength = stageStrengthFor(features, kind);
    noise.lumaWeight = strength.luma;
    noise.colourWeight = strength.colour;
    noise.rounds = strength.rounds;
    if (pilot.width == image.width && pilot.height == image.height)
        measurement.pilot = std::move(pilot);
    return measurement;
}

void setLevels(Kt7PhotoNoise& noise, const QxNoiseLevels& levels) noexcept {
    // A level below this tells nothing about the spectrum, which may have gone to 0 with it.
    constexpr float noLevel = 1e-6f;
    const auto follow = [](auto& plane, float now, float before) {
        if (now == before)
            return;
        // In double precision nothing overflows: hosts may trap that.
        const double ratio = before >= noLevel ? double{now} / double{before} : 0.0;
        const double white = 255.0 * double{now};
        for (auto& row : plane)
            for (float& power : row) {
                const double followed =
                    before >= noLevel ? ratio * ratio * double{power} : white * white;
                power = static_cast<float>(std::min<double>(followed, mostPower));
            }
    };
    follow(noise.spectrum[0], levels.lumaMid, noise.levels.lumaMid);
    for (const std::size_t plane : {1, 2})
        follow(noise.spectrum[plane], std::max(levels.chromaU, levels.chromaV),
               std::max(noise.levels.chromaU, noise.levels.chromaV));
    noise.levels = levels;
}

} // namespace kt7::photo
