#include "tools/kt7/files/memoryFile.h"

#include "tools/kt7/errors.h"
#include "tools/kt7/signals.h"

#include <cerrno>
#include <cstring>
#include <sys/mman.h>
#include <sys/types.h>
#include <unistd.h>
#include <vector>

namespace kt7::tool {
namespace {

constexpr std::size_t chunkBytes = std::size_t{1} << 20;

bool writeAll(int to, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t n = write(to, data, size);
        if (n < 0 && errno == EINTR) {
            throwIfCancelled();
            continue;
        }
        if (n < 0)
            return false;
        data += n;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

} // namespace

MemoryFile::MemoryFile() : descriptor_(memfd_create("kt7", MFD_CLOEXEC)) {
    if (descriptor_ < 0)
        throw UserError(std::string("no memory for a file: ") + std::strerror(errno));
    path_ = "/proc/self/fd/" + std::to_string(descriptor_);
}

MemoryFile::~MemoryFile() {
    close(descriptor_);
}

void MemoryFile::fillFrom(int descriptor) {
    std::vector<char> chunk(chunkBytes);
    for (;;) {
        const ssize_t n = read(descriptor, chunk.data(), chunk.size());
        throwIfCancelled();
        if (n == 0)
            return;
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 || !writeAll(descriptor_, chunk.data(), static_cast<std::size_t>(n)))
            throw UserError(about("-", std::strerror(errno)));
    }
}

std::string MemoryFile::contents() const {
    std::string bytes;
    std::vector<char> chunk(chunkBytes);
    for (ssize_t n; (n = pread(descriptor_, chunk.data(), chunk.size(),
                               static_cast<off_t>(bytes.size()))) > 0;)
        bytes.append(chunk.data(), static_cast<std::size_t>(n));
    return bytes;
}

void MemoryFile::replaceContents(const std::string& bytes) {
    if (ftruncate(descriptor_, 0) != 0 || lseek(descriptor_, 0, SEEK_SET) != 0 ||
        !writeAll(descriptor_, bytes.data(), bytes.size()))
        throw UserError(std::string("no memory for a file: ") + std::strerror(errno));
}

bool copyAll(const MemoryFile& from, int to) {
    std::vector<char> chunk(chunkBytes);
    for (off_t at = 0;;) {
        const ssize_t n = pread(from.descriptor(), chunk.data(), chunk.size(), at);
        throwIfCancelled();
        if (n == 0)
            return true;
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 || !writeAll(to, chunk.data(), static_cast<std::size_t>(n)))
            return false;
        at += n;
    }
}

} // namespace kt7::tool
