// Metadata carried over byte for byte. The image library decodes what it knows and writes that
// again; maker notes, foreign XMP and all Exif in PNG files would be lost on the way.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kt7::tool {

struct MetadataBlocks {
    std::string container;           ///< "jpeg", "png" or empty
    std::string exif;                ///< the TIFF block of Exif, without its JPEG prefix
    std::vector<std::string> blocks; ///< segments or chunks for a file of the same container
    bool complete = true;            ///< false for a PNG whose end chunk is missing
};

/// What the bytes of a JPEG or PNG file hold; nothing for other formats. Stops at the first thing
/// it can't follow.
MetadataBlocks metadataOf(std::string_view file);

/// A JPEG or PNG file with this metadata in the place of its own. Other formats, and files without
/// anything to put in, come back as they are.
std::string withMetadata(std::string_view file, const MetadataBlocks& metadata);

} // namespace kt7::tool
