#include "fuzz/Input.h"
#include "tools/kt7/files/format.h"

#include <new>
#include <optional>

// A damaged header may ask for any size; a request that no small picture needs fails, as it would
// on a machine that has run out of memory.
namespace {
void* allocate(std::size_t size) noexcept {
    constexpr std::size_t most = std::size_t{256} << 20;
    return size > most ? nullptr : std::malloc(size > 0 ? size : 1);
}
void* allocateOrThrow(std::size_t size) {
    if (void* block = allocate(size))
        return block;
    throw std::bad_alloc();
}
} // namespace

// clang-format off
void* operator new(std::size_t size) { return allocateOrThrow(size); }
void* operator new[](std::size_t size) { return allocateOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { std::free(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { std::free(block); }
// clang-format on

extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
    return "allocator_may_return_null=1:max_allocation_size_mb=256";
}

// The coder of HEIC loses a block at every use, the decoder of AVIF one with some damaged files.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:x265\nleak:libdav1d\n";
}

namespace {

using namespace kt7::fuzz;
using namespace kt7::tool;

/// Nothing when the bytes are refused in the way that the commands expect.
std::optional<Photo> decodeOrRefuse(std::span<const std::uint8_t> bytes) {
    try {
        return decode(bytes);
    } catch (const CodecError&) {
    } catch (const std::bad_alloc&) {
    }
    return {};
}

void requireWhole(const Photo& photo) {
    require(photo.width > 0 && photo.height > 0, "a photo has pixels");
    require(photo.channels == 1 || photo.channels == 3, "grey or RGB");
    const auto pixels = static_cast<std::size_t>(photo.pixels());
    require(photo.samples.size() == pixels * static_cast<std::size_t>(photo.channels) &&
                (photo.alpha.empty() || photo.alpha.size() == pixels),
            "samples for every pixel");
    const auto onScale = [&](std::uint32_t v) { return v <= photo.white(); };
    require(std::ranges::all_of(photo.samples, onScale) &&
                std::ranges::all_of(photo.alpha, onScale),
            "samples on their scale");
    require(photo.metadata.orientation >= 1 && photo.metadata.orientation <= 8, "an orientation");
}

/// Codes the photo and decodes it again.
void recode(const Photo& photo, const FileFormat& format) {
    Coded coded;
    try {
        coded = encode(photo, format, 0);
    } catch (const CodecError&) {
        return;
    } catch (const std::bad_alloc&) {
        return;
    }
    const Photo again = decode(coded.bytes);
    requireWhole(again);
    // HEIC and AVIF turn the picture where the others leave that to who shows it.
    require(again.pixels() == photo.pixels(), "a coded photo holds the same picture");
    if (coded.lossless && again.channels == photo.channels && again.bits == photo.bits &&
        again.premultiplied == photo.premultiplied)
        require(again.samples == photo.samples, "lossless formats keep the samples");
    if (coded.lost.empty() && !photo.metadata.exif.empty())
        require(!again.metadata.exif.empty(), "Exif is kept or its loss is said");
}

} // namespace

extern "C" __attribute__((weak)) std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size,
                                                              std::size_t most);

/// Changes a file and makes the checksums of a PNG right again: the reader leaves out chunks whose
/// checksum is wrong, and nothing behind it would ever see a change.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t most, unsigned seed) {
    size = LLVMFuzzerMutate(data, size, most);
    constexpr std::size_t signature = 8, frame = 12;
    const auto number = [&](std::size_t at) {
        return std::uint32_t{data[at]} << 24 | std::uint32_t{data[at + 1]} << 16 |
               std::uint32_t{data[at + 2]} << 8 | std::uint32_t{data[at + 3]};
    };
    // Wrong ones are of interest too.
    if (size < signature || std::memcmp(data, "\x89PNG", 4) != 0 || seed % 8 == 0)
        return size;
    for (std::size_t at = signature; at + frame <= size && number(at) <= size - at - frame;) {
        const std::size_t length = number(at);
        std::uint32_t crc = 0xFFFFFFFFu;
        for (std::size_t i = at + 4; i < at + 8 + length; ++i) {
            crc ^= data[i];
            for (int bit = 0; bit < 8; ++bit)
                crc = crc >> 1 ^ (crc & 1 ? 0xEDB88320u : 0u);
        }
        at += frame + length;
        for (std::size_t i = 0; i < 4; ++i)
            data[at - 4 + i] = static_cast<std::uint8_t>(~crc >> (24 - 8 * i));
    }
    return size;
}

/// The input is the file; what is read is coded in one of the formats, seldom in one of the slow.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::optional<Photo> photo = decodeOrRefuse({data, size});
    if (!photo)
        return 0;
    requireWhole(*photo);
    const auto formats = fileFormats();
    constexpr std::size_t choices = 32, quick = 4;
    const std::size_t choice = size % choices;
    recode(*photo, *formats[choice < formats.size() ? choice : choice % quick]);
    return 0;
}
