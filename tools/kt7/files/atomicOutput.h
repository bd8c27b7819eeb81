// Output that appears whole or not at all.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace kt7::tool {

/// Checks, before any long work, that `path` can be written: its directory exists and takes files,
/// and the path is no directory. "-" is standard output, which must not be a terminal. Raises
/// UserError.
void checkWritable(const std::string& path);

/// Puts the bytes at `path`: through a temporary file beside it and a rename, so that whoever looks
/// sees the old file or the whole new one. A link is followed, permissions of a file that is
/// replaced are kept. Devices, pipes and "-" have no rename and are written directly. Raises
/// UserError or Cancelled, with the temporary file removed and `path` as it was.
void publish(std::span<const std::uint8_t> bytes, const std::string& path);

} // namespace kt7::tool
