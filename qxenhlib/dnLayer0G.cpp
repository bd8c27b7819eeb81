// Full-size detail of luma, and the end of the luma plane.
#include "qxenhlib/Denoise3DCT.h"
#include "qxenhlib/LayerTiles.h"
#include "qxenhlib/bilateralPass.h"
#include "qxutils/qxbase/QXRC.h"
#include "qxutils/qxbase/progress.h"

namespace kt7 {

std::int32_t Denoise3DCT::dnLayer0G() {
    if (pyramids[0]->levelCount != 1)
        raise(QxBase::QXRC::layerNotReady);
    GIMG<std::int16_t>* level = pyramids[0]->levels[0];
    const auto units = static_cast<float>(budget());
    {
        LayerTiles tiles(*this, 0, {&level, 1}, LayerTiles::MatchOn::guide);
        // 0.94 of the budget over pairs of tiles; the folding and smoothing below have the rest.
        const float share = units * 1.88f / static_cast<float>(tiles.plannedTiles());
        if (!tiles.run(static_cast<std::int32_t>(share), 2))
            return -1;
        tiles.store();
    }
    pyramids[0]->foldTop();
    if (lumaSmooth > 0.0001f)
        bilateralPass(*level, lumaSmooth, lumaSmoothRange);
    return qxProgressAdvance(progress, static_cast<std::int32_t>(units * 0.1f)) == 0 ? -1 : 0;
}

} // namespace kt7
