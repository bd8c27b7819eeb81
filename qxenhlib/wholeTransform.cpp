// Plain form, which only tests link: whole transforms, band by band. ChromaLevelPass does the way
// there and CDTDWT2dDnCbCr the way back by rows, for what reaches the result alone.
#include <algorithm>

#include "prim/plainForms.h"
#include "prim/set.h"
#include "qxenhlib/CDTDWT2d.h"
#include "qxenhlib/waveletFilters.h"

namespace kt7 {
namespace {

constexpr SubbandKind detailKinds[] = {lowHigh, highLow, highHigh};

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

void extendBorder(SubbandPlane& plane) {
    extendPeriod(plane, plane.width(), plane.height());
}

void extendPeriod(SubbandPlane& plane, std::int32_t width, std::int32_t height) {
    const std::int32_t border = plane.border;
    const std::int32_t right = plane.width() + border, bottom = plane.height() + border;
    for (std::int32_t y = 0; y < height; ++y) {
        float* const row = plane.at(0, y);
        for (std::int32_t x = -1; x >= -border; --x)
            row[x] = row[x + width];
        // Ascending, so that a tile less wide than what is missing goes on repeating.
        for (std::int32_t x = width; x < right; ++x)
            row[x] = row[x - width];
    }
    const auto copyRow = [&](std::int32_t from, std::int32_t to) {
        std::copy_n(plane.at(-border, from), right + border, plane.at(-border, to));
    };
    for (std::int32_t y = -1; y >= -border; --y)
        copyRow(y + height, y);
    for (std::int32_t y = height; y < bottom; ++y)
        copyRow(y - height, y);
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
                const std::int32_t result =
                    analyseLevel(j == 0, a, b, in, *band(j, a, b, lowLow), *band(j, a, b, lowHigh),
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
            synthesiseLevel(j == 0, 1, 1, *band(j, 1, 1, lowLow), *band(j, 1, 1, lowHigh),
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
    for (std::int32_t y = 0; y < re.height; ++y)
        primMagnitude32f(re.at(0, y), im.at(0, y), out.at(0, y), re.width);
}

std::int32_t CDTDWT2d::analyseLevel(bool firstStage, std::int32_t a, std::int32_t b,
                                    const SubbandPlane& in, SubbandPlane& LL, SubbandPlane& LH,
                                    SubbandPlane& HL, SubbandPlane& HH) {
    const std::int32_t checked = checkLevel(a, b, in, {&LL, &LH, &HL, &HH});
    if (checked != waveletDone)
        return checked;
    const auto& taps = analysisTaps.at[firstStage ? 0 : 1];
    const std::int32_t width = LL.width(), height = LL.height();
    SubbandPlane* const bands[2][2] = {{&LL, &LH}, {&HL, &HH}};
    for (std::int32_t branch = 0; branch < 2; ++branch) {
        GIMG<float> rows(width, 2 * height + 8); // row y of the plane at y + 4
        for (std::int32_t y = 0; y < rows.height; ++y)
            for (std::int32_t n = 0; n < width; ++n) {
                double sum = 0;
                for (std::int32_t i = 0; i < waveletTaps; ++i)
                    sum += double{taps[a][branch][i]} * double{*in.at(2 * n + 5 - i, y - 4)};
                *rows.at(n, y) = static_cast<float>(sum);
            }
        for (std::int32_t along = 0; along < 2; ++along)
            for (std::int32_t m = 0; m < height; ++m)
                for (std::int32_t n = 0; n < width; ++n) {
                    double sum = 0;
                    for (std::int32_t i = 0; i < waveletTaps; ++i)
                        sum += double{taps[b][along][i]} * double{*rows.at(n, 2 * m + 9 - i)};
                    *bands[branch][along]->at(n, m) = static_cast<float>(sum);
                }
    }
    return waveletDone;
}

// An orthonormal bank is undone by its transpose: every result goes back to where its terms came
// from, columns first.
std::int32_t CDTDWT2d::synthesiseLevel(bool firstStage, std::int32_t a, std::int32_t b,
                                       const SubbandPlane& LL, const SubbandPlane& LH,
                                       const SubbandPlane& HL, const SubbandPlane& HH,
                                       SubbandPlane& out) {
    const std::int32_t checked = checkLevel(a, b, out, {&LL, &LH, &HL, &HH});
    if (checked != waveletDone)
        return checked;
    const auto& taps = analysisTaps.at[firstStage ? 0 : 1];
    const std::int32_t width = LL.width(), height = LL.height();
    const SubbandPlane* const bands[2][2] = {{&LL, &LH}, {&HL, &HH}};
    const auto wrapped = [](std::int32_t i, std::int32_t period) {
        return (i % period + period) % period;
    };
    primSet32fC1(0.0f, out.at(0, 0), out.image->stepBytes, out.image->roi());
    for (std::int32_t branch = 0; branch < 2; ++branch) {
        GIMG<float> rows(width, 2 * height);
        primSet32fC1(0.0f, rows.data, rows.stepBytes, rows.roi());
        for (std::int32_t along = 0; along < 2; ++along)
            for (std::int32_t m = 0; m < height; ++m)
                for (std::int32_t i = 0; i < waveletTaps; ++i)
                    for (std::int32_t n = 0; n < width; ++n)
                        *rows.at(n, wrapped(2 * m + 5 - i, 2 * height)) +=
                            taps[b][along][i] * *bands[branch][along]->at(n, m);
        for (std::int32_t y = 0; y < rows.height; ++y)
            for (std::int32_t n = 0; n < width; ++n)
                for (std::int32_t i = 0; i < waveletTaps; ++i)
                    *out.at(wrapped(2 * n + 5 - i, 2 * width), y) +=
                        taps[a][branch][i] * *rows.at(n, y);
    }
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
