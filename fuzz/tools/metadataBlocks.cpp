#include "tools/kt7/files/metadataBlocks.h"
#include "fuzz/Input.h"

/// Two files: the metadata of the first moves into the second. The input starts with the size of
/// the first in 16 bits.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace kt7::fuzz;
    using namespace kt7::tool;
    Input in(data, size);
    const auto text = [](std::span<const std::uint8_t> bytes) {
        return std::string(bytes.begin(), bytes.end());
    };
    const std::string from = text(in.takeBytes(in.take<std::uint16_t>())), to = text(in.rest());

    const MetadataBlocks found = metadataOf(from);
    std::size_t at = 0;
    for (const std::string& block : found.blocks) {
        at = from.find(block, at);
        require(at != std::string::npos, "blocks are bytes of the file, in their order");
        at += block.size();
    }
    require(found.exif.empty() || from.find(found.exif) != std::string::npos,
            "Exif is bytes of the file");

    const std::string moved = withMetadata(to, found);
    const std::string container = metadataOf(to).container;
    const MetadataBlocks again = metadataOf(moved);
    require(again.container == container, "the file keeps its kind");
    const bool same = container == found.container;
    if (container.empty() || (same ? found.blocks.empty() : found.exif.empty()))
        require(moved == to, "a file with nothing to put in comes back as it is");
    else if (same)
        require(again.blocks.size() >= found.blocks.size() &&
                    std::equal(found.blocks.begin(), found.blocks.end(), again.blocks.begin()),
                "blocks arrive as they are, before others");
    // A segment of JPEG has no room for more.
    else if (container == "png" || found.exif.size() < 65000)
        require(again.exif == found.exif, "Exif arrives as it is");
    return 0;
}
