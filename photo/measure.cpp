#include "photo/measure.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

#include "photo/textureGuard.h"

namespace kt7::photo {
namespace {

/// Small photos are mirrored at their edges until the estimate takes them.
constexpr std::int32_t leastSide = 160;

std::int32_t mirrored(std::int32_t at, std::int32_t length) {
    const std::int32_t turn = at % (2 * length);
    return turn < length ? turn : 2 * length - 1 - turn;
}

EngineImage enlarged(const EngineImage& image) {
    EngineImage larger(std::max(image.width, leastSide), std::max(image.height, leastSide));
    for (std::int32_t y = 0; y < larger.height; ++y) {
        const std::uint16_t* from = image.row(mirrored(y, image.height));
        std::uint16_t* to = larger.row(y);
        for (std::int32_t x = 0; x < larger.width; ++x)
            std::copy_n(from + std::ptrdiff_t{3} * mirrored(x, image.width), 3,
                        to + std::ptrdiff_t{3} * x);
    }
    return larger;
}

Kt7PhotoNoise measuredLarge(const EngineImage& image, Progress& progress) {
    Kt7PhotoNoise noise{};
    noise.size = sizeof noise;
    progress.report(0.0);
    noise.estimate = estimatedLevels(image);
    progress.report(0.5);
    noise.levels = guardedLevels(noise.estimate, noiseFloorOf(image));
    noise.noiseLike = 1.0f;
    noise.lumaWeight = noise.colourWeight = 1.0f;
    noise.rounds = 1;
    progress.report(1.0);
    return noise;
}

} // namespace

Kt7PhotoNoise measuredNoise(const EngineImage& image, Progress& progress) {
    return std::min(image.width, image.height) < leastSide
               ? measuredLarge(enlarged(image), progress)
               : measuredLarge(image, progress);
}

void setLevels(Kt7PhotoNoise& noise, const QxNoiseLevels& levels) noexcept {
    const auto powerRatio = [](float now, float before) {
        return before > 0.0f ? now / before * (now / before) : 1.0f;
    };
    const float luma = powerRatio(levels.lumaMid, noise.levels.lumaMid);
    const float colour = powerRatio(std::max(levels.chromaU, levels.chromaV),
                                    std::max(noise.levels.chromaU, noise.levels.chromaV));
    for (std::size_t plane = 0; plane < std::size(noise.spectrum); ++plane)
        for (auto& row : noise.spectrum[plane])
            for (float& power : row)
                power *= plane == 0 ? luma : colour;
    noise.levels = levels;
}

} // namespace kt7::photo
