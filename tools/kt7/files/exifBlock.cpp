#include "tools/kt7/files/exifBlock.h"

#include <algorithm>
#include <cstring>

namespace kt7::tool {
namespace {

constexpr std::size_t entryBytes = 12;

/// Numbers behind the end are 0.
std::uint32_t number(const Bytes& bytes, std::size_t at, std::size_t size) {
    std::uint32_t value = 0;
    if (at > bytes.size() || bytes.size() - at < size)
        return 0;
    for (std::size_t i = 0; i < size; ++i)
        value = value << 8 | bytes[bytes[0] == 'M' ? at + i : at + size - 1 - i];
    return value;
}

void clear(Bytes& bytes, std::size_t at, std::size_t size) {
    if (at <= bytes.size() && bytes.size() - at >= size)
        std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), size, std::uint8_t{0});
}

std::size_t entriesOf(const Bytes& exif, std::size_t directory) {
    return number(exif, directory, 2);
}

/// Where the value of a tag stands, 4 bytes or an offset to it; 0 for a tag that isn't there.
std::size_t valueOf(const Bytes& exif, std::size_t directory, std::uint16_t tag) {
    for (std::size_t i = 0; i < entriesOf(exif, directory); ++i) {
        const std::size_t entry = directory + 2 + entryBytes * i;
        if (number(exif, entry, 2) == tag)
            return entry + 8;
    }
    return 0;
}

} // namespace

bool isTiffStream(const Bytes& bytes) {
    return bytes.size() >= 8 && (std::memcmp(bytes.data(), "II*\0", 4) == 0 ||
                                 std::memcmp(bytes.data(), "MM\0*", 4) == 0);
}

void dropThumbnail(Bytes& exif) {
    const std::size_t first = number(exif, 4, 4);
    const std::size_t link = first + 2 + entryBytes * entriesOf(exif, first);
    const std::size_t second = number(exif, link, 4);
    if (second == 0)
        return;
    constexpr std::uint16_t jpegOffset = 0x201, jpegBytes = 0x202;
    const std::size_t offset = valueOf(exif, second, jpegOffset);
    const std::size_t size = valueOf(exif, second, jpegBytes);
    // A real thumbnail stands behind the directories.
    if (offset != 0 && size != 0 && number(exif, offset, 4) > second)
        clear(exif, number(exif, offset, 4), number(exif, size, 4));
    clear(exif, link, 4);
}

std::uint16_t shortOf(const Bytes& exif, std::uint16_t tag, std::uint16_t otherwise) {
    const std::size_t at = valueOf(exif, number(exif, 4, 4), tag);
    return at == 0 ? otherwise : static_cast<std::uint16_t>(number(exif, at, 2));
}

} // namespace kt7::tool
