// Metadata as bytes: what has to change in them, and how they move between formats. By Exiv2.
#pragma once

#include "tools/kt7/files/format.h"

namespace kt7::tool {

/// After decoding: takes the thumbnail out of the Exif block, makes its orientation and size those
/// of the picture, and reads from it what the file says nowhere else. An orientation of 0 stands
/// for what Exif says.
void tidyMetadata(Photo& photo);

/// The name of a profile that no program could use: it goes into no file, whatever its format.
inline constexpr const char* damagedProfile = "a damaged colour profile";

/// Before coding: leaves out what the format can't hold and names it; puts density and orientation
/// into the Exif block where a format has no other place.
void fitMetadata(Photo& photo, const FileFormat& format, std::vector<std::string>& lost);

Density inInches(const Density& density);

/// Photoshop's resource blocks of a JPEG or TIFF: IPTC, and others that stay as they are, but for
/// the thumbnail.
void takeResources(const Bytes& resources, Metadata& metadata);
Bytes resourcesOf(const Metadata& metadata);

/// The index of a multi-picture file. Raises CodecError when it holds further photos; of previews and
/// gain maps a remark is made, and the result is true.
bool checkMultiPicture(const Bytes& index, Photo& photo);

/// The metadata of a TIFF, without the tags that say how its pixels are coded.
/// What can't be read gets a remark.
void takeTiffMetadata(std::span<const std::uint8_t> file, Photo& photo);
/// A TIFF that holds pixels alone, with Exif, XMP and IPTC put in.
Bytes withTiffMetadata(Bytes file, const Metadata& metadata, std::vector<std::string>& lost);

} // namespace kt7::tool
