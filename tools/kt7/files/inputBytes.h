// The one reader of input: files, pipes and standard input become bytes in memory.
#pragma once

#include "tools/kt7/files/photo.h"

namespace kt7::tool {

/// All bytes of a file or named pipe, of what /dev/stdin or /dev/fd/N stand for, or of standard
/// input for "-". Devices, directories, sockets and addresses of the web are refused. Raises
/// UserError that names the file.
Bytes readInput(const std::string& path);

} // namespace kt7::tool
