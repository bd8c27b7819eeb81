#include "tools/kt7/files/limits.h"

#include "tools/kt7/files/format.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sys/resource.h>
#include <unistd.h>

namespace kt7::tool {
namespace {

/// MemAvailable also counts what the page cache would give back; no system call tells that.
std::uint64_t systemMemory() {
    std::ifstream file("/proc/meminfo");
    unsigned long long kilobytes = 0;
    for (std::string line; std::getline(file, line);)
        if (std::sscanf(line.c_str(), "MemAvailable: %llu", &kilobytes) == 1)
            return std::uint64_t{kilobytes} * 1024;
    return static_cast<std::uint64_t>(sysconf(_SC_PHYS_PAGES)) *
           static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

} // namespace

std::uint64_t availableMemory() {
    rlimit own{};
    const bool limited = getrlimit(RLIMIT_AS, &own) == 0 && own.rlim_cur != RLIM_INFINITY;
    return limited ? std::min<std::uint64_t>(systemMemory(), own.rlim_cur) : systemMemory();
}

void checkSize(std::uint64_t width, std::uint64_t height, int channels, std::size_t fileBytes) {
    // A row of the library is at most 2 GiB.
    constexpr std::uint64_t mostSide = (std::uint64_t{1} << 31) / 6 - 1;
    if (width == 0 || height == 0)
        throw CodecError("is empty");
    char size[64];
    std::snprintf(size, sizeof size, "%llu x %llu pixels", static_cast<unsigned long long>(width),
                  static_cast<unsigned long long>(height));
    if (width > mostSide || height > mostSide)
        throw CodecError("is too large (" + std::string(size) + ")");
    const std::uint64_t pixels = width * height;
    // Our samples, and the larger of what decoding and denoising need beside them.
    constexpr std::uint64_t denoising = 40;
    const std::uint64_t samples = static_cast<std::uint64_t>(channels) * 2;
    const std::uint64_t bytesPerPixel = samples + std::max(samples, denoising);
    if (pixels > availableMemory() / bytesPerPixel)
        throw CodecError("is too large for this machine's memory (" + std::string(size) + ")");
    // Flat pictures pack well and small ones harm nobody; a photo takes a byte for a few pixels.
    // Deflate, at its best, packs 170 pixels of 16-bit RGB into a byte, and 340 of 8-bit RGB.
    constexpr std::uint64_t harmless = 100'000'000, mostPixelsPerByte = 150;
    if (pixels > harmless && pixels / mostPixelsPerByte > fileBytes)
        throw CodecError("is no photo: " + std::string(size) + " in " + std::to_string(fileBytes) +
                         " bytes");
}

} // namespace kt7::tool
