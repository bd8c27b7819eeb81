// A photo's place to measure: itself when it is small, else windows of it side by side.
#pragma once

#include <vector>

#include "photo/blockStatistics.h"
#include "photo/engine.h"

namespace kt7::photo {

struct Mosaic {
    EngineImage image;
    /// Blocks on a grid of 4 that do not come near the seams between windows.
    std::vector<BlockPlace> blocks;
};

/// Windows are spread evenly, so that what is true of their blocks is true of those of the photo. A
/// photo below the denoiser's least size for measuring is mirrored at its edges.
Mosaic mosaicOf(const EngineImage& photo);

} // namespace kt7::photo
