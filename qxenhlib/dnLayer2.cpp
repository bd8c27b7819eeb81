// Quarter-size detail of all planes, matched on the luma guide.
#include "qxenhlib/Denoise3DCT.h"
#include "qxenhlib/LayerTiles.h"

namespace kt7 {

std::int32_t Denoise3DCT::dnLayer2() {
    if (pyramids[0]->levelCount < 1)
        return 0;
    const std::int32_t layer = pyramids[0]->levelCount - 1;
    std::vector<GIMG<std::int16_t>*> levels;
    levels.reserve(static_cast<std::size_t>(channelCount));
    for (std::int32_t c = 0; c < channelCount; ++c)
        levels.push_back(pyramids[c]->levels[layer]);
    LayerTiles tiles(*this, layer, levels, LayerTiles::MatchOn::guide);
    const float share = static_cast<float>(budget()) / static_cast<float>(tiles.plannedTiles());
    if (!tiles.run(static_cast<std::int32_t>(share), 1))
        return -1;
    tiles.store();
    for (std::int32_t c = 0; c < channelCount; ++c)
        pyramids[c]->foldTop();
    return 0;
}

} // namespace kt7
