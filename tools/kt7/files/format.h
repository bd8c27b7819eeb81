// The file formats: what each one is called, how it is known, what it can hold, and its codec.
#pragma once

#include "tools/kt7/files/photo.h"

#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kt7::tool {

/// Why bytes can't be decoded or a photo can't be coded; what() names no file.
class CodecError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct Coded {
    Bytes bytes = {};
    std::string format = {};
    int bits = 8;
    bool lossless = true;
    int quality = 0;              ///< 1..100 of a lossy file, measured where it was kept
    std::string subsampling = {}; ///< of colour, such as "4:2:0"; empty where nothing is left out
    std::vector<std::string> lost = {}; ///< what the format can't hold, by name
};

/// How much of a file is decoded.
enum class Depth { header, everything };

struct FileFormat {
    const char* name;
    std::span<const char* const> extensions;
    bool (*isIn)(std::span<const std::uint8_t> bytes); ///< by its first bytes

    // A loss of what can't be held is said by name.
    bool holdsAlpha, holdsPremultiplied, holdsIptc, holdsTexts, holdsDensity;
    std::int32_t largestSide;
    std::int32_t (*bitsFor)(std::int32_t bits); ///< of samples that hold those of a source

    /// A photo without samples for Depth::header. Raises CodecError.
    Photo (*decode)(std::span<const std::uint8_t> bytes, Depth depth);
    /// The photo holds nothing that the format can't. Quality 0: like the source, else the usual.
    /// Raises CodecError.
    Coded (*encode)(const Photo& photo, int quality);
};

extern const FileFormat jpegFormat, pngFormat, tiffFormat, webpFormat, heicFormat, avifFormat,
    jxlFormat;

/// All that this build knows.
std::span<const FileFormat* const> fileFormats();
std::string formatNames(); ///< with commas between them
const FileFormat* formatNamed(std::string_view nameOrExtension);
const FileFormat* formatOf(std::span<const std::uint8_t> bytes);

/// The bytes of any format. Raises CodecError, which says so when the format isn't known.
Photo decode(std::span<const std::uint8_t> bytes, Depth depth = Depth::everything);

/// Fits the photo to the format (see Coded::lost for what had to go) and codes it; `quality` as in
/// FileFormat::encode. Raises CodecError.
Coded encode(const Photo& photo, const FileFormat& format, int quality);

} // namespace kt7::tool
