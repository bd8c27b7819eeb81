#include "qxenhlib/CDTDWT2d.h"

namespace kt7 {
namespace {

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

} // namespace kt7
