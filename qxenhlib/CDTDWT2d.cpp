#include "qxenhlib/CDTDWT2d.h"

#include <algorithm>
#include <cmath>

namespace kt7 {
namespace {

constexpr SubbandKind detailKinds[] = {lowHigh, highLow, highHigh};

/// Next multiple of 2^(levels + 1), which leaves every level a multiple of 4.
std::int32_t padded(std::int32_t side, std::int32_t levels) {
    const std::int32_t unit = 1 << (levels + 1);
    return (side + unit - 1) / unit * unit;
}

bool isKept(BandSet kept, bool coarsest, bool tree11, SubbandKind kind) {
    if (kept == BandSet::all)
        return true;
    if (kept == BandSet::restored && tree11)
        return true;
    return kind == lowLow && !coarsest;
}

std::int32_t checkLevel(std::int32_t a, std::int32_t b, const SubbandPlane& full,
                        std::initializer_list<const SubbandPlane*> halves) {
    bool fits =
        full.border == SubbandPlane::borderCells && full.width() % 4 == 0 && full.height() % 4 == 0;
    for (const SubbandPlane* half : halves)
        fits = fits && half->border == SubbandPlane::borderCells &&
               half->width() * 2 == full.width() && half->height() * 2 == full.height();
    if (!fits)
        return waveletBadGeometry;
    return a < 0 || a > 1 || b < 0 || b > 1 ? waveletBadTree : waveletDone;
}

/// First and second become their sum and difference at unit gain, which is its own inverse.
void sumAndDifference(SubbandPlane& first, SubbandPlane& second) {
    constexpr float rootHalf = 0.70710677f;
    for (std::int32_t y = 0; y < first.height(); ++y) {
        float* const p = first.at(0, y);
        float* const q = second.at(0, y);
        for (std::int32_t x = 0; x < first.width(); ++x) {
            const float difference = p[x] - q[x];
            p[x] = (p[x] + q[x]) * rootHalf;
            q[x] = difference * rootHalf;
        }
    }
}

} // namespace

CDTDWT2d::CDTDWT2d(PrimSize size, std::int32_t levelCount, BandSet kept)
    : levels(levelCount), paddedSize_{} {
    if (levels < 0 || levels > maxWaveletLevels)
        raise(badWaveletLevels);
    paddedSize_ = {padded(size.width, levels), padded(size.height, levels)};
    if (kept == BandSet::all)
        image = std::make_unique<SubbandPlane>(fullSize, paddedSize_.width, paddedSize_.height);
    for (std::int32_t j = 0; j < levels; ++j)
        for (std::int32_t a = 0; a < 2; ++a)
            for (std::int32_t b = 0; b < 2; ++b)
                for (const SubbandKind kind : {lowLow, lowHigh, highLow, highHigh})
                    if (isKept(kept, j == levels - 1, a == 1 && b == 1, kind))
                        bands[j][a][b][kind - 1] = std::make_unique<SubbandPlane>(
                            kind, levelSize(j).width, levelSize(j).height);
}

std::int32_t CDTDWT2d::loadImage(const float* src, std::int32_t srcStep, PrimSize size) {
    if (!image || size.width < paddedSize_.width / 2 || size.height < paddedSize_.height / 2)
        return waveletBadGeometry;
    const std::int32_t width = std::min(size.width, paddedSize_.width);
    const std::int32_t height = std::min(size.height, paddedSize_.height);
    for (std::int32_t y = 0; y < height; ++y)
        std::copy_n(rowAt(src, srcStep, y), width, image->at(0, y));
    extendPeriod(*image, width, height);
    return waveletDone;
}

std::int32_t CDTDWT2d::storeImage(float* dst, std::int32_t dstStep, PrimSize size) const {
    const std::int32_t width = std::min(size.width, paddedSize_.width);
    for (std::int32_t y = 0; y < std::min(size.height, paddedSize_.height); ++y)
        std::copy_n(image->at(0, y), width, rowAt(dst, dstStep, y));
    return waveletDone;
}

std::int32_t CDTDWT2d::forward() {
    if (!image)
        return waveletBadGeometry;
    for (std::int32_t j = 0; j < levels; ++j)
        for (std::int32_t a = 0; a < 2; ++a)
            for (std::int32_t b = 0; b < 2; ++b) {
                SubbandPlane& in = j == 0 ? *image : *band(j - 1, a, b, lowLow);
                if (j > 0)
                    extendBorder(in);
                const std::int32_t result = analyseLevel(
                    scratch, j == 0, a, b, in, *band(j, a, b, lowLow), *band(j, a, b, lowHigh),
                    *band(j, a, b, highLow), *band(j, a, b, highHigh));
                if (result != waveletDone)
                    return result;
            }
    combineTrees();
    return waveletDone;
}

std::int32_t CDTDWT2d::inverse() {
    if (!image)
        return waveletBadGeometry;
    combineTrees();
    // Of the four trees only (1, 1) reaches the image.
    for (std::int32_t j = levels - 1; j >= 0; --j) {
        SubbandPlane& out = j == 0 ? *image : *band(j - 1, 1, 1, lowLow);
        const std::int32_t result =
            synthesiseLevel(scratch, j == 0, 1, 1, *band(j, 1, 1, lowLow), *band(j, 1, 1, lowHigh),
                            *band(j, 1, 1, highLow), *band(j, 1, 1, highHigh), out);
        if (result != waveletDone)
            return result;
    }
    return waveletDone;
}

GIMG<float>& CDTDWT2d::getBand(std::int32_t level, std::int32_t orientation, bool realPart) {
    const OrientationSlot slot = orientationSlots[orientation];
    return *band(level, realPart ? 0 : 1, slot.b, slot.kind)->image;
}

void CDTDWT2d::magnitude(std::int32_t level, std::int32_t orientation, GIMG<float>& out) {
    const GIMG<float>& re = getBand(level, orientation, true);
    const GIMG<float>& im = getBand(level, orientation, false);
    for (std::int32_t y = 0; y < re.height; ++y) {
        const float *const r = re.at(0, y), *const i = im.at(0, y);
        float* const m = out.at(0, y);
        for (std::int32_t x = 0; x < re.width; ++x)
            m[x] = std::sqrt(r[x] * r[x] + i[x] * i[x]);
    }
}

std::int32_t CDTDWT2d::analyseLevel(LevelScratch& scratch, bool firstStage, std::int32_t a,
                                    std::int32_t b, const SubbandPlane& in, SubbandPlane& LL,
                                    SubbandPlane& LH, SubbandPlane& HL, SubbandPlane& HH) {
    const std::int32_t checked = checkLevel(a, b, in, {&LL, &LH, &HL, &HH});
    if (checked != waveletDone)
        return checked;
    constexpr std::int32_t splitLine = 2 * RowWindow::rows;
    scratch.ensureScratch(LL.width() + 2 * lineRim, splitLine + 2);
    const auto& taps = analysisTaps.at[firstStage ? 0 : 1];
    RowWindow window;
    window.start(scratch, 0, splitLine, taps[a][lowPass], 2, LL.width());
    for (std::int32_t n = 0; n < LL.height(); ++n) {
        window.moveTo(n, [&](std::int32_t y) { return in.at(-4, y); });
        float* const low[2] = {LL.at(0, n), LH.at(0, n)};
        window.columns(n, lowPass, taps[b][lowPass], low, 2);
        float* const high[2] = {HL.at(0, n), HH.at(0, n)};
        window.columns(n, highPass, taps[b][lowPass], high, 2);
    }
    return waveletDone;
}

std::int32_t CDTDWT2d::synthesiseLevel(LevelScratch& scratch, bool firstStage, std::int32_t a,
                                       std::int32_t b, const SubbandPlane& LL,
                                       const SubbandPlane& LH, const SubbandPlane& HL,
                                       const SubbandPlane& HH, SubbandPlane& out) {
    const std::int32_t checked = checkLevel(a, b, out, {&LL, &LH, &HL, &HH});
    if (checked != waveletDone)
        return checked;
    scratch.ensureScratch(LL.width() + 2 * lineRim, synthesisLines);
    const auto& weights = synthesisWeights.at[firstStage ? 0 : 1];
    const SubbandPlane* const tree[4] = {&LL, &LH, &HL, &HH};
    for (std::int32_t m = 0; m < LL.height(); ++m)
        synthesiseRows(scratch, tree, weights[b][0], weights[a][0], m,
                       [&](std::int32_t y, const float* even, const float* odd) {
                           waveletKernels->joinPairs(even, odd, out.at(0, y), LL.width());
                       });
    return waveletDone;
}

void CDTDWT2d::combineTrees() {
    for (std::int32_t j = 0; j < levels; ++j)
        for (const SubbandKind kind : detailKinds) {
            sumAndDifference(*band(j, 0, 0, kind), *band(j, 1, 1, kind));
            sumAndDifference(*band(j, 0, 1, kind), *band(j, 1, 0, kind));
        }
}

} // namespace kt7
