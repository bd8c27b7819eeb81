// Float plane with a border round it: the image of a wavelet transform, or one of its bands.
#pragma once

#include <cstdint>
#include <memory>

#include "qxutils/qxbase/IMG.h"

namespace kt7 {

/// What a plane holds. In lowHigh the rows were low-pass and the columns high-pass filtered, in
/// highLow the reverse.
enum SubbandKind : std::int32_t {
    fullSize = 0,
    lowLow = 1,
    lowHigh = 2,
    highLow = 3,
    highHigh = 4
};

/// A plane of the nominal size (kind 0) or a band of half that size (kinds 1 to 4). The region of
/// interest stands in storage with `border` cells on each side and one further column and row.
struct SubbandPlane {
    static constexpr std::int32_t borderCells = 5;

    std::int32_t kind;
    std::unique_ptr<GIMG<float>> image;
    std::int32_t nominalWidth, nominalHeight;
    std::int32_t border;

    /// Contents undefined. Raises oddBandSize unless both sides are even, noBufferStorage.
    SubbandPlane(std::int32_t planeKind, std::int32_t width, std::int32_t height);

    std::int32_t width() const { return image->width; }
    std::int32_t height() const { return image->height; }

    /// Sample (x, y); from -border up to size + border - 1 in both directions.
    float* at(std::int32_t x, std::int32_t y) { return image->at(x, y); }
    const float* at(std::int32_t x, std::int32_t y) const { return image->at(x, y); }
};

/// Plain forms, for wholeTransform.cpp. Fills the border so that the plane repeats itself on all sides (circular, not mirrored).
void extendBorder(SubbandPlane& plane);

/// Fills the border and everything right of and below the top left `width` x `height` samples so
/// that those samples repeat with their own period, whatever the size of the plane.
void extendPeriod(SubbandPlane& plane, std::int32_t width, std::int32_t height);

} // namespace kt7
