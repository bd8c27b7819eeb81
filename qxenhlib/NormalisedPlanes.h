// An image as the engine sees it: three padded 16-bit planes in which noise has one size.
#pragma once

#include <cstdint>

#include "include/kt7lib/kt7types.h"
#include "qxutils/NoiseNormalize.h"
#include "qxutils/qxbase/IMG.h"

namespace kt7 {

/// Deviations of the planes' noise, where 1.0 is full scale, and the shape of its spectrum (see
/// QxNoiseLevels::noiseGrain).
struct PlaneNoise {
    float luma, chromaU, chromaV, grain;
};

/// Planes of Y, U and V with the image in the middle, and the curve that its samples go through.
class NormalisedPlanes {
  public:
    /// Planes for an image of this size; the curve follows the levels, all of them 0 to 1e6.
    /// Raises noBufferStorage.
    NormalisedPlanes(std::int32_t width, std::int32_t height, const QxNoiseLevels& levels);

    /// Fills the planes, margins included. 16-bit samples of the image are first held at 32767 in
    /// place.
    void fill(const PSImage& image);

    /// Writes the planes back to the image.
    void store(const PSImage& image) const;

    /// The levels that the curve was made from, as noise of the planes.
    PlaneNoise noise() const;

    GIMG<std::int16_t> luma, chromaU, chromaV;

  private:
    QxNoiseLevels levels_;
    NoiseNormalize curve_;
};

} // namespace kt7
