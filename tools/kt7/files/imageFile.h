// Reading and writing of image files.
#pragma once

#include "tools/kt7/files/photo.h"

#include <string>

namespace kt7::tool {

/// Reads the first image of a file, or of standard input for "-": grey or RGB, with or without
/// alpha, 8 or 16 bits, or floating point within 0..1. Pixels are not turned by the orientation tag
/// and not multiplied with alpha. Raises UserError for everything else, damaged files included.
Photo readPhoto(const std::string& path);

/// Checks a file format before any long work and returns its name for writePhoto: `format` (an
/// extension or a name, empty: none given), else the extension of `path`, else the format that the
/// photo came from. Raises UserError when it can't be written.
std::string writableFormat(const std::string& path, const std::string& format, const Photo& photo);

/// Writes with the metadata, colour profile and sample depth that the photo came with, as far as
/// the format can hold them. `quality` (1..100) counts for JPEG and other lossy formats. Appears
/// whole or not at all; raises UserError or Cancelled.
void writePhoto(const Photo& photo, const std::string& path, const std::string& formatName,
                int quality);

/// The colour profile inside the photo's file; empty when it has none.
std::vector<std::uint8_t> colourProfile(const Photo& photo);

/// An 8-bit picture made from the photo, described by a colour profile of its own (none when empty:
/// viewers take it for sRGB). Of the metadata it keeps which way is up.
Photo pictureFrom(const Photo& photo, std::int32_t width, std::int32_t height,
                  std::vector<std::uint8_t> rgb, const std::vector<std::uint8_t>& profile);

} // namespace kt7::tool
