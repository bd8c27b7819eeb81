#include "tools/kt7/files/metadataBlocks.h"

#include <algorithm>
#include <cstdint>

namespace kt7::tool {
namespace {

constexpr std::string_view jpegStart = "\xFF\xD8\xFF";
constexpr std::string_view pngStart = "\x89PNG\r\n\x1A\n";
constexpr std::string_view exifPrefix{"Exif\0\0", 6};
// The length of a JPEG segment has 16 bits and counts itself.
constexpr std::size_t segmentPayloadMax = 65533;

std::uint32_t bigEndian(std::string_view bytes) {
    std::uint32_t value = 0;
    for (const char c : bytes)
        value = value << 8 | static_cast<unsigned char>(c);
    return value;
}

std::string bigEndianBytes(std::uint32_t value, int bytes) {
    std::string out;
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8)
        out.push_back(static_cast<char>(value >> shift & 0xFF));
    return out;
}

/// A segment of JPEG or a chunk of PNG: all its bytes, its type, and what it carries.
struct Block {
    std::string_view whole;
    std::string_view type;
    std::string_view payload;
};

/// The blocks before the pixels; `rest` is what follows them.
std::vector<Block> jpegBlocks(std::string_view file, std::string_view& rest) {
    std::vector<Block> blocks;
    std::size_t at = 2;
    while (at + 4 <= file.size() && file[at] == '\xFF') {
        const auto marker = static_cast<unsigned char>(file[at + 1]);
        const std::size_t length = bigEndian(file.substr(at + 2, 2));
        constexpr unsigned char startOfScan = 0xDA, firstWithLength = 0xC0;
        if (marker < firstWithLength || marker == startOfScan || length < 2 ||
            at + 2 + length > file.size())
            break;
        blocks.push_back(
            {file.substr(at, length + 2), file.substr(at + 1, 1), file.substr(at + 4, length - 2)});
        at += length + 2;
    }
    rest = file.substr(std::min(at, file.size()));
    return blocks;
}

std::vector<Block> pngBlocks(std::string_view file, std::string_view& rest) {
    std::vector<Block> blocks;
    std::size_t at = pngStart.size();
    while (at + 12 <= file.size()) {
        const std::size_t length = bigEndian(file.substr(at, 4));
        const std::string_view type = file.substr(at + 4, 4);
        if (length > file.size() - at - 12 || type == "IDAT")
            break;
        blocks.push_back({file.substr(at, length + 12), type, file.substr(at + 8, length)});
        at += length + 12;
    }
    rest = file.substr(std::min(at, file.size()));
    return blocks;
}

bool isJpegMetadata(const Block& block) {
    constexpr char app1 = '\xE1', app13 = '\xED', comment = '\xFE';
    return block.type[0] == app1 || block.type[0] == app13 || block.type[0] == comment;
}

bool isPngMetadata(const Block& block) {
    // Not sBIT and bKGD: they depend on the sample type, which may have changed.
    constexpr std::string_view known = "eXIf tEXt zTXt iTXt iCCP sRGB gAMA cHRM cICP pHYs";
    return known.find(block.type) != std::string_view::npos;
}

bool isExif(const Block& block) {
    return block.type == "eXIf" || (block.type == "\xE1" && block.payload.starts_with(exifPrefix));
}

/// CRC-32 of ISO 3309, bit by bit: it runs over a few kilobytes once a file.
std::uint32_t crc32(std::string_view bytes) {
    std::uint32_t crc = 0xFFFFFFFFu;
    for (const char c : bytes) {
        crc ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; ++bit)
            crc = crc >> 1 ^ (crc & 1 ? 0xEDB88320u : 0u);
    }
    return ~crc;
}

std::string exifSegment(std::string_view exif) {
    const std::size_t payload = exifPrefix.size() + exif.size();
    if (payload > segmentPayloadMax)
        return {};
    std::string segment = "\xFF\xE1";
    segment += bigEndianBytes(static_cast<std::uint32_t>(payload + 2), 2);
    return segment.append(exifPrefix).append(exif);
}

std::string exifChunk(std::string_view exif) {
    const std::string body = std::string("eXIf").append(exif);
    return bigEndianBytes(static_cast<std::uint32_t>(exif.size()), 4) + body +
           bigEndianBytes(crc32(body), 4);
}

} // namespace

MetadataBlocks metadataOf(std::string_view file) {
    MetadataBlocks metadata;
    std::vector<Block> all;
    std::string_view rest;
    if (file.starts_with(jpegStart)) {
        metadata.container = "jpeg";
        all = jpegBlocks(file, rest);
    } else if (file.starts_with(pngStart)) {
        metadata.container = "png";
        all = pngBlocks(file, rest);
        // Text and Exif may also stand behind the pixels.
        while (rest.size() >= 12 && (all.empty() || all.back().type != "IEND")) {
            const std::size_t length = bigEndian(rest.substr(0, 4));
            if (length > rest.size() - 12)
                break;
            all.push_back({rest.substr(0, length + 12), rest.substr(4, 4), rest.substr(8, length)});
            rest.remove_prefix(length + 12);
        }
    }
    metadata.complete = metadata.container != "png" || (!all.empty() && all.back().type == "IEND");
    for (const Block& block : all) {
        if (isExif(block) && metadata.exif.empty())
            metadata.exif = block.payload.substr(block.type == "eXIf" ? 0 : exifPrefix.size());
        if (metadata.container == "jpeg" ? isJpegMetadata(block) : isPngMetadata(block))
            metadata.blocks.emplace_back(block.whole);
    }
    return metadata;
}

std::string withMetadata(std::string_view file, const MetadataBlocks& metadata) {
    const bool jpeg = file.starts_with(jpegStart);
    if (!jpeg && !file.starts_with(pngStart))
        return std::string(file);
    const bool same = metadata.container == (jpeg ? "jpeg" : "png");
    std::string added;
    if (same)
        for (const std::string& block : metadata.blocks)
            added += block;
    else if (!metadata.exif.empty())
        added = jpeg ? exifSegment(metadata.exif) : exifChunk(metadata.exif);
    if (added.empty())
        return std::string(file);

    std::string_view rest;
    const std::vector<Block> blocks = jpeg ? jpegBlocks(file, rest) : pngBlocks(file, rest);
    std::string out(jpeg ? file.substr(0, 2) : pngStart);
    bool placed = false;
    for (const Block& block : blocks) {
        // Behind the header that has to come first.
        const bool header = block.type == "IHDR" || block.type == "\xE0";
        if (!header && !placed) {
            out += added;
            placed = true;
        }
        const bool replaced =
            same ? (jpeg ? isJpegMetadata(block) : isPngMetadata(block)) : isExif(block);
        if (!replaced)
            out += block.whole;
    }
    if (!placed)
        out += added;
    return out.append(rest);
}

} // namespace kt7::tool
