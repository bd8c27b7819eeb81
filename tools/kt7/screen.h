// Photos as kt7lib's calls on screen pictures take them.
#pragma once

#include "kt7lib/kt7lib.h"
#include "tools/kt7/files/photo.h"

#include <cstdint>
#include <vector>

namespace kt7::tool {

/// The photo as the library takes it: RGB, 16-bit samples of 0..32768.
class LibraryImage {
  public:
    explicit LibraryImage(const Photo& photo);

    PSImage view();

  private:
    std::int32_t width_, height_;
    std::vector<std::uint16_t> samples_;
};

/// RGB on 0..255, rounded.
Bytes screenRgb(const Photo& photo);

} // namespace kt7::tool
