#include "hosts/web/src/Photo.h"

#include <cstring>
#include <utility>

#include "tools/kt7/files/exifBlock.h"

namespace kt7::web {
namespace {

constexpr std::uint16_t orientationTag = 0x0112;

} // namespace

void Photo::takeExif(Bytes block) {
    constexpr char mark[] = "Exif\0"; // with the second zero
    if (block.size() > sizeof mark && std::memcmp(block.data(), mark, sizeof mark) == 0)
        block.erase(block.begin(), block.begin() + sizeof mark);
    if (!tool::isTiffStream(block)) {
        lost.emplace_back("an Exif block that is none");
        return;
    }
    exif = std::move(block);
    tool::dropThumbnail(exif);
    const std::uint16_t turned = tool::shortOf(exif, orientationTag, 1);
    orientation = turned >= 1 && turned <= 8 ? turned : 1;
}

void Photo::makeExif() {
    if (!exif.empty() || orientation == 1)
        return;
    // One directory with one entry: a number of 16 bits.
    exif = {
        'M', 'M', 0, '*', 0, 0, 0, 8, 0, 1, orientationTag >> 8, orientationTag & 0xff, 0, 3, 0, 0,
        0,   1,   0, 0,   0, 0, 0, 0, 0, 0};
    exif[19] = static_cast<std::uint8_t>(orientation);
}

} // namespace kt7::web
