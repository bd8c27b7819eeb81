// How a JPEG was coded, out of libjpeg's records and back into them.
#pragma once

#include "tools/kt7/files/photo.h"

#include <cstdio> // for jpeglib.h

#include <jpeglib.h>

namespace kt7::tool {

/// True for a warning of libjpeg that stands for lost pixels. Some cameras leave bytes between
/// segments; other warnings say little about the pixels.
bool meansDamage(int warning);

/// A file of few bytes can hold thousands of scans over a huge picture.
inline constexpr int mostJpegScans = 500;

/// Of a JPEG whose decompression has begun.
JpegCoding codingOf(const jpeg_decompress_struct& codec);

/// True when a picture of so many channels can be coded in this way.
bool canCodeLike(const JpegCoding& coding, int channels);

/// Steps, subsampling and order of scans as in the source; all else must be set already.
void codeLike(const JpegCoding& coding, jpeg_compress_struct& codec);

} // namespace kt7::tool
