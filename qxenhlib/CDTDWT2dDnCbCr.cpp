#include "qxenhlib/CDTDWT2dDnCbCr.h"

#include <algorithm>
#include <atomic>
#include <new>

#include "prim/waveletRows.h"
#include "qxenhlib/noiseShape.h"
#include "qxutils/parallel.h"

namespace kt7 {
namespace {

// Divided by these, by level, a noise deviation becomes half the mean magnitude that white noise
// has in the coefficients (sqrt(pi / 8) of the deviation, Rayleigh), as measured.
constexpr float magnitudeNorm[8] = {1.6085f, 1.5959f, 1.5962f, 1.5959f,
                                    1.5944f, 1.5964f, 1.5957f, 1.5765f};

/// Spreads rows 0..count-1 over the workers in strips: work(worker, first, last), after
/// start(worker) once on each. Four strips each even out what else the processors do; a strip
/// begins by filtering again the eight rows above it, so it should not be thin.
template <class Start, class Work>
void spreadRows(std::vector<LevelWorker>& workers, std::int32_t count, Start&& start, Work&& work) {
    constexpr std::int32_t stripsEach = 4, thinnestStrip = 12;
    const std::int32_t team = std::min(static_cast<std::int32_t>(workers.size()), maxThreads());
    const std::int32_t strips =
        team == 1 ? 1 : std::clamp(count / thinnestStrip, 1, stripsEach * team);
    std::atomic<std::int32_t> next{0};
    parallelWorkers(std::min(team, strips), [&](std::int32_t index) {
        LevelWorker& worker = workers[static_cast<std::size_t>(index)];
        start(worker);
        for (std::int32_t s = next++; s < strips; s = next++)
            work(worker, count * s / strips, count * (s + 1) / strips);
    });
}

std::unique_ptr<CDTDWT2d> makeTransform(PrimSize size, std::int32_t levels, BandSet kept) {
    return std::unique_ptr<CDTDWT2d>(new (std::nothrow) CDTDWT2d(size, levels, kept));
}

} // namespace

std::int32_t CDTDWT2dDnCbCr::setup(std::int32_t tileWidth, std::int32_t tileHeight,
                                   std::int32_t levelCount) {
    width = height = levels = 0;
    lumaTransform.reset();
    cbTransform.reset();
    crTransform.reset();
    const PrimSize size{tileWidth, tileHeight};
    lumaTransform = makeTransform(size, levelCount, BandSet::lowPass);
    cbTransform = makeTransform(size, levelCount, BandSet::restored);
    crTransform = makeTransform(size, levelCount, BandSet::restored);
    if (!lumaTransform || !cbTransform || !crTransform)
        return noTransform;
    workers_ = std::vector<LevelWorker>(static_cast<std::size_t>(std::max(maxThreads(), 1)));
    // Lines are made here for all passes, so that nothing is allocated while a tile is worked on.
    const GIMG<float>* const noPlanes[3] = {};
    CDTDWT2d* const transforms[3] = {lumaTransform.get(), cbTransform.get(), crTransform.get()};
    for (std::int32_t j = 0; j < levelCount; ++j)
        for (LevelWorker& worker : workers_)
            ChromaLevelPass(noPlanes, transforms, j, LevelGains{}, true).start(worker);
    width = tileWidth;
    height = tileHeight;
    levels = levelCount;
    return 0;
}

LevelGains CDTDWT2dDnCbCr::gainsOf(std::int32_t level, const float sigma[3], const float* lumaCurve,
                                   const float* chromaCurve) const {
    LevelGains gains;
    gains.byLuma = useLumaGain[level] || !useChromaGain[level];
    gains.byChroma = useChromaGain[level] || !useLumaGain[level];
    gains.cap = gainCap[level];
    // The shapes are known for six levels; coarser ones hardly differ.
    const std::int32_t column = std::min(level, noiseShapeLevels - 1);
    for (std::int32_t plane = 0; plane < 3; ++plane) {
        const float curve = plane == 0 ? lumaCurve[column] : chromaCurve[column];
        const float ramp = plane == 0 ? lumaRamp : chromaRamp;
        gains.threshold[plane] = sigma[plane] / magnitudeNorm[level] * curve;
        // Without noise the slope is all but infinite: whatever is not zero is kept at the cap.
        gains.slope[plane] = 1.0f / (ramp * gains.threshold[plane] + 1e-15f);
    }
    return gains;
}

std::int32_t CDTDWT2dDnCbCr::denoiseC(const GIMG<float>& luma, GIMG<float>& cb, GIMG<float>& cr,
                                      float sigmaCb, float sigmaCr, float chromaShape, float sigmaY,
                                      float lumaShape) {
    const GIMG<float>* const planes[3] = {&luma, &cb, &cr};
    for (const GIMG<float>* plane : planes)
        if (plane->fullWidth != width || plane->fullHeight != height)
            return wrongTile;
    CDTDWT2d* const transforms[3] = {lumaTransform.get(), cbTransform.get(), crTransform.get()};
    const float sigma[3] = {sigmaY, sigmaCb, sigmaCr};
    float lumaCurve[noiseShapeLevels], chromaCurve[noiseShapeLevels];
    noiseShape(lumaShape, lumaCurve);
    noiseShape(chromaShape, chromaCurve);
    LevelGains gains[maxWaveletLevels];
    std::int32_t lumaLevels = 0;
    for (std::int32_t j = 0; j < levels; ++j) {
        gains[j] = gainsOf(j, sigma, lumaCurve, chromaCurve);
        if (gains[j].byLuma)
            lumaLevels = j + 1;
    }
    for (std::int32_t j = 0; j < levels; ++j) {
        const ChromaLevelPass pass(planes, transforms, j, gains[j], j + 1 < lumaLevels);
        spreadRows(
            workers_, pass.bandRows(), [&](LevelWorker& worker) { pass.start(worker); },
            [&](LevelWorker& worker, std::int32_t first, std::int32_t last) {
                pass.run(worker, first, last);
            });
    }
    for (std::int32_t j = levels - 1; j >= 0; --j)
        restoreLevel(j, cb, cr);
    return 0;
}

void CDTDWT2dDnCbCr::restoreLevel(std::int32_t level, GIMG<float>& cb, GIMG<float>& cr) {
    CDTDWT2d* const transforms[2] = {cbTransform.get(), crTransform.get()};
    const PrimSize size = transforms[0]->levelSize(level);
    const auto& weights = synthesisWeights.at[level == 0 ? 0 : 1][1];
    // At the finest level the padding stays behind.
    const std::int32_t outWidth = level == 0 ? width : size.width;
    const std::int32_t outHeight = level == 0 ? height : size.height;
    const auto restoreRows = [&](LevelWorker& worker, std::int32_t first, std::int32_t last) {
        for (std::int32_t plane = 0; plane < 2; ++plane) {
            CDTDWT2d& transform = *transforms[plane];
            GIMG<float>& out = level > 0 ? *transform.band(level - 1, 1, 1, lowLow)->image
                                         : (plane == 0 ? cb : cr);
            const SubbandPlane* const tree[4] = {
                transform.band(level, 1, 1, lowLow), transform.band(level, 1, 1, lowHigh),
                transform.band(level, 1, 1, highLow), transform.band(level, 1, 1, highHigh)};
            for (std::int32_t m = first; m < last; ++m)
                synthesiseRows(worker.scratch, tree, weights[0], weights[0], m,
                               [&](std::int32_t y, const float* even, const float* odd) {
                                   if (y >= outHeight)
                                       return;
                                   float* const row = out.at(0, y);
                                   joinPairs(even, odd, row, outWidth / 2);
                                   if (outWidth % 2 != 0)
                                       row[outWidth - 1] = even[outWidth / 2];
                               });
        }
    };
    spreadRows(
        workers_, (outHeight + 1) / 2,
        [&](LevelWorker& worker) {
            worker.scratch.ensureScratch(size.width / 2 + 2 * lineRim, synthesisLines);
        },
        restoreRows);
}

} // namespace kt7
