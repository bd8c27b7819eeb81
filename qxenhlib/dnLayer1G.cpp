// Half-size detail of luma.
#include "qxenhlib/Denoise3DCT.h"
#include "qxenhlib/LayerTiles.h"

namespace kt7 {

std::int32_t Denoise3DCT::dnLayer1G() {
    if (pyramids[0]->levelCount < 1)
        return 0;
    const std::int32_t layer = pyramids[0]->levelCount - 1;
    GIMG<std::int16_t>* level = pyramids[0]->levels[layer];
    LayerTiles tiles(*this, layer, {&level, 1}, LayerTiles::MatchOn::guide);
    // Progress counts pairs of tiles, hence the 2; a single last tile counts as a pair too.
    const float share = static_cast<float>(2 * budget()) / static_cast<float>(tiles.plannedTiles());
    if (!tiles.run(static_cast<std::int32_t>(share), 2))
        return -1;
    tiles.store();
    pyramids[0]->foldTop();
    return 0;
}

} // namespace kt7
