// An Exif block as bytes: a TIFF stream whose parts are read and blotted out where they stand, as
// whatever moves breaks a maker note.
#pragma once

#include "tools/kt7/files/photo.h"

#include <cstddef>

namespace kt7::tool {

/// True for the header of a TIFF stream.
bool isTiffStream(const Bytes& bytes);

/// Unlinks the second directory of a TIFF stream, which describes the thumbnail, and blots out its
/// picture.
void dropThumbnail(Bytes& exif);

/// The first directory's value of a tag that holds one number of 16 bits, or `otherwise`.
std::uint16_t shortOf(const Bytes& exif, std::uint16_t tag, std::uint16_t otherwise);

} // namespace kt7::tool
