// The one writer of output: bytes appear whole or not at all, and nobody's file goes unasked.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace kt7::tool {

/// What happens to a file that is there already.
enum class Existing { refuse, replace };

/// Checks, before any long work, that `path` can be written: its directory exists and takes files,
/// and what is there already is no directory, no disk, no terminal, and no file that has to stay.
/// "-" is standard output. Raises UserError.
void checkWritable(const std::string& path, Existing existing);

/// Whether a file is there that would have to be replaced.
bool isTaken(const std::string& path);

/// Puts the bytes at `path`: through a temporary file beside it, so that whoever looks sees the old
/// file, or none, or the whole new one. A file that turned up since checkWritable is not replaced
/// either. Links are followed. What is replaced hands on its permissions (but for set-id bits),
/// and its owner and extended attributes as far as the process may set them; further hard links of
/// it keep the old bytes. Pipes, devices and open descriptors ("-", /dev/stdout, /dev/fd/N) are
/// written to as they are. Raises UserError with the temporary file removed and `path` as it was.
void publish(std::span<const std::uint8_t> bytes, const std::string& path, Existing existing);

} // namespace kt7::tool
