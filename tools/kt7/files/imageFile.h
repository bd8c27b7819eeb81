// Reading and writing of image files.
#pragma once

#include "tools/kt7/files/atomicOutput.h"
#include "tools/kt7/files/format.h"

#include <string>

namespace kt7::tool {

/// Reads a photo from a file, a pipe, or standard input for "-". Pixels are not turned by the
/// orientation and not multiplied with alpha. What had to be left out is said on standard error.
/// Raises UserError for everything that is no single grey or RGB picture of 8 to 16 bits, damaged
/// files included.
Photo readPhoto(const std::string& path);

/// Checks a file format before any long work: `format` (an extension or a name, empty: none
/// given), else the extension of `path`, else the format that the photo came from. Raises UserError
/// when it can't be written.
const FileFormat& writableFormat(const std::string& path, const std::string& format,
                                 const Photo& photo);

/// Writes with the metadata, colour profile and sample depth that the photo came with, as far as
/// the format can hold them; says on standard error what it can't. `quality` (1..100) counts for
/// lossy formats; with 0 a file of the photo's own format is coded as that was. What was coded is
/// read again before it takes its place, which it does whole or not at all (see publish). Raises
/// UserError. The result holds everything but the bytes.
Coded writePhoto(const Photo& photo, const std::string& path, const FileFormat& format, int quality,
                 Existing existing);

/// An 8-bit RGB picture made from the photo, described by a colour profile of its own (none when
/// empty: viewers take it for sRGB). Of the metadata it keeps which way is up.
Photo pictureFrom(const Photo& photo, std::int32_t width, std::int32_t height,
                  const std::vector<std::uint8_t>& rgb, const Bytes& profile);

} // namespace kt7::tool
