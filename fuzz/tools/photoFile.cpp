#include "fuzz/Input.h"
#include "tests/tools/scratchFolder.h"
#include "tools/kt7/errors.h"
#include "tools/kt7/files/imageFile.h"
#include "tools/kt7/files/memoryFile.h"

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

// The PNG reader jumps out of a damaged file past the destructors of its strings; the stack that
// the leak checker sees ends in the C++ library.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:basic_string<char, std::char_traits<char>, std::allocator<char> >::_M_assign\n";
}

namespace {

using namespace kt7::fuzz;
using namespace kt7::tool;

/// Nothing when the file is refused in the way that the commands expect.
std::optional<Photo> readOrRefuse(const std::string& path) {
    try {
        return readPhoto(path);
    } catch (const UserError& error) {
        require(std::string_view(error.what()).find('\n') == std::string_view::npos,
                "a refusal is one line");
    } catch (const std::bad_alloc&) {
    }
    return {};
}

void requireWhole(const Photo& photo) {
    require(photo.width > 0 && photo.height > 0, "a photo has pixels");
    const auto pixels = static_cast<std::size_t>(photo.pixels());
    require(photo.rgb8.size() == (photo.sixteen ? 0 : pixels * 3) &&
                photo.rgb15.size() == (photo.sixteen ? pixels * 3 : 0) &&
                (photo.alpha.empty() || photo.alpha.size() == pixels),
            "samples for every pixel");
    require(std::ranges::all_of(photo.rgb15, [](auto v) { return v <= 32768; }) &&
                std::ranges::all_of(photo.alpha, [](float v) { return v >= 0.0f && v <= 1.0f; }),
            "samples on their scale");
}

/// Writes the photo and reads it again: all of it, or nothing is there.
void rewrite(const Photo& photo, const kt7::ScratchFolder& folder, const std::string& format) {
    const std::string path = folder / "out";
    try {
        writePhoto(photo, path, format, 90);
    } catch (const UserError&) {
        require(folder.count() == 0, "a failed write leaves nothing");
        return;
    } catch (const std::bad_alloc&) {
        require(folder.count() == 0, "a failed write leaves nothing");
        return;
    }
    require(folder.count() == 1, "one file is written");
    const Photo again = readPhoto(path);
    std::filesystem::remove(path);
    requireWhole(again);
    require(again.width == photo.width && again.height == photo.height && again.grey == photo.grey,
            "a file that was written holds the same picture");
    if (format != "jpeg")
        require(again.rgb8 == photo.rgb8 && again.rgb15 == photo.rgb15 &&
                    again.alpha.size() == photo.alpha.size(),
                "lossless formats keep the samples");
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

/// The input is the file.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const kt7::ScratchFolder folder;
    MemoryFile file;
    file.replaceContents(std::string(data, data + size));
    const std::optional<Photo> photo = readOrRefuse(file.path());
    if (!photo)
        return 0;
    requireWhole(*photo);
    colourProfile(*photo);
    constexpr const char* formats[] = {"jpeg", "png", "tiff"};
    rewrite(*photo, folder, formats[size % std::size(formats)]);
    return 0;
}
