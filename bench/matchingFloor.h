// The time that block matching alone takes, which no call can go below.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "include/kt7lib/kt7types.h"
#include "qxenhlib/Denoise3DCT.h"
#include "qxutils/qxbase/IMG.h"

namespace kt7::bench {

/// The matching of one denoise call, to be timed as often as wanted. The luma images that the
/// layers match on are those of the call, coarser layers denoised; they are made once and kept.
class MatchingFloor {
  public:
    /// From the image and the noise levels that the call gets.
    MatchingFloor(const PSImage& image, const QxNoiseLevels& noise, bool fastMode);

    /// Processor seconds, divided by the team, for building the search index of every tile of every
    /// layer and answering its queries, with the call's tiles, trees and checks, on the present
    /// team and with nothing else around them but the making of the features, which isn't counted.
    double seconds() const;

  private:
    struct Search {
        std::unique_ptr<GIMG<std::int16_t>> image;
        LayerSearch settings;
    };

    std::vector<Search> searches_; // one per layer
};

} // namespace kt7::bench
