// Two-dimensional dual-tree complex wavelet transform.
#pragma once

#include <cstdint>
#include <memory>

#include "prim/primtypes.h"
#include "qxenhlib/SubbandPlane.h"
#include "qxutils/qxbase/IMG.h"

namespace kt7 {

inline constexpr std::int32_t maxWaveletLevels = 7;
inline constexpr std::int32_t waveletOrientations = 6;

/// Where an orientation's coefficients stand: bands[level][0][b] holds the real part, [1][b] the
/// imaginary one.
struct OrientationSlot {
    std::int32_t b;
    SubbandKind kind;
};
inline constexpr OrientationSlot orientationSlots[waveletOrientations] = {
    {0, highLow}, {1, highHigh}, {0, lowHigh}, {1, lowHigh}, {0, highHigh}, {1, highLow}};

/// Result codes of the transform.
enum WaveletResult : std::int32_t {
    waveletDone = 0,
    waveletBadGeometry = 2, ///< sizes or borders do not fit each other
    waveletBadTree = 4,     ///< a tree index other than 0 or 1
};

/// Which planes a transform holds.
enum class BandSet {
    all,      ///< everything: the transform can be run forward and back
    lowPass,  ///< low-pass bands of all trees but those of the coarsest level
    restored, ///< as lowPass, and all bands of tree (1, 1)
};

/// Four separable real wavelet trees over one float plane (Selesnick, Baraniuk and Kingsbury 2005),
/// tree (a, b) with filters a along x and b along y, whose detail bands are combined in pairs by
/// sum and difference into complex coefficients of six orientations per level. The transform has no
/// scale of its own. Sides are padded to multiples of 2^(levels + 1), with the tile's own period.
/// Made once for all tiles of a size; one thread at a time.
///
/// The library uses the object as a holder of bands, which ChromaLevelPass fills. All that works on
/// whole bands is the plain form of that and of the way back, linked by tests (wholeTransform.cpp).
class CDTDWT2d {
  public:
    /// size: that of the tiles; levels: 0 to 7, level 0 the finest. With a smaller set the object
    /// only holds bands for whoever fills them, and image is null. Raises badWaveletLevels,
    /// noBufferStorage.
    CDTDWT2d(PrimSize size, std::int32_t levels, BandSet kept = BandSet::all);

    /// Takes a tile in, srcStep in bytes, and fills the padding and the border periodically.
    /// Returns waveletBadGeometry and leaves `image` alone when a side is less than half the padded
    /// one.
    std::int32_t loadImage(const float* src, std::int32_t srcStep, PrimSize size);

    /// Transforms `image` into `bands`.
    std::int32_t forward();

    /// A part of the complex coefficients of an orientation, 0 to 5, after forward.
    GIMG<float>& getBand(std::int32_t level, std::int32_t orientation, bool realPart);

    /// out = magnitude of the coefficients; out is at least as large as the band.
    void magnitude(std::int32_t level, std::int32_t orientation, GIMG<float>& out);

    /// Transforms `bands` back into `image` and spends them. The image is rebuilt from tree (1, 1)
    /// alone, at unit gain; gains on complex coefficients reach it through the sums and
    /// differences. Exact without padding; with it, the first five columns and rows may differ.
    std::int32_t inverse();

    /// Copies the top left part of `image`, at most `size`, to dst. Returns waveletDone.
    std::int32_t storeImage(float* dst, std::int32_t dstStep, PrimSize size) const;

    /// One level of one tree from a plane whose border is filled: a selects the filters along x, b
    /// those along y.
    static std::int32_t analyseLevel(bool firstStage, std::int32_t a, std::int32_t b,
                                     const SubbandPlane& in, SubbandPlane& LL, SubbandPlane& LH,
                                     SubbandPlane& HL, SubbandPlane& HH);

    /// Its inverse, from bands that count as periodic.
    static std::int32_t synthesiseLevel(bool firstStage, std::int32_t a, std::int32_t b,
                                        const SubbandPlane& LL, const SubbandPlane& LH,
                                        const SubbandPlane& HL, const SubbandPlane& HH,
                                        SubbandPlane& out);

    /// The band of a tree and kind, null when it is not kept.
    SubbandPlane* band(std::int32_t level, std::int32_t a, std::int32_t b, SubbandKind kind) {
        return bands[level][a][b][kind - 1].get();
    }

    /// Size of the plane that a level analyses, padding included.
    PrimSize levelSize(std::int32_t level) const {
        return {paddedSize_.width >> level, paddedSize_.height >> level};
    }

    std::unique_ptr<SubbandPlane> image;
    std::int32_t levels;
    std::unique_ptr<SubbandPlane> bands[maxWaveletLevels][2][2][4];

  private:
    void combineTrees();

    PrimSize paddedSize_;
};

} // namespace kt7
