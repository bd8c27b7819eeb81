// Limits that hold before anything is decoded.
#pragma once

#include "tools/kt7/files/photo.h"

#include <cstddef>

namespace kt7::tool {

/// Metadata of one file, unpacked. Photographs hold some hundred kilobytes.
inline constexpr std::size_t mostMetadataBytes = std::size_t{64} << 20;

/// Bytes that this process may still ask for, as far as the system tells.
std::uint64_t availableMemory();

/// Raises CodecError when the size, as a file's header says it, can't be worked on: sides beyond
/// the library's, more than can be denoised in this machine's memory, or far more than `fileBytes`
/// can have in them.
void checkSize(std::uint64_t width, std::uint64_t height, int channels, std::size_t fileBytes);

} // namespace kt7::tool
